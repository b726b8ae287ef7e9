#include "fcgi_server.h"

#include "app_log.h"
#include "base/mutex_lock.h"
#include "busy_mark.h"
#include "http_status.h"
#include "lingering_close.h"
#include "log_module.h"
#include "servlet_controller.h"

#include <atomic>
#include <cassert>
#include <memory>
#include <pthread.h>
#include <syslog.h>
#include <utility>

namespace {

constexpr int kListenSocket = 0;

// Serialises FCGX_Accept_r() for the whole process, even between several FCGIServer objects.
pthread_mutex_t acceptLock = PTHREAD_MUTEX_INITIALIZER;

std::atomic<void (*)(FCGX_Request&)> requestHook{nullptr};

int acceptRequest(FCGX_Request* request) {
    const base::MutexLock lock(acceptLock);
    return FCGX_Accept_r(request);
}

// Takes the connection over from libfcgi unless the front server keeps it for further requests:
// libfcgi closes a connection on the thread that served the request, and waits there for as long as
// the front server sends something every now and then.
void finish(FCGX_Request& request) {
    const bool isToBeClosed = request.ipcFd > kListenSocket && request.keepConnection == 0;
    if (isToBeClosed)
        request.keepConnection = 1;
    FCGX_Finish_r(&request);
    if (!isToBeClosed)
        return;
    request.keepConnection = 0;
    base::Descriptor connection(std::exchange(request.ipcFd, -1));
    if (connection) // libfcgi closes it itself after an error
        closeLingering(std::move(connection));
}

} // namespace

FCGIServer::FCGIServer() {
    FCGX_Init();
    controller = std::make_unique<ServletController>();
    controller->init();
}

FCGIServer::FCGIServer(const char* configFile) {
    assert(configFile != nullptr);
    FCGX_Init();
    controller = std::make_unique<ServletController>(configFile);
    controller->init();
}

FCGIServer::~FCGIServer() {
    if (controller == nullptr)
        return;
    controller->destroy();
    controller.reset();
    endLingering();
}

int FCGIServer::run() {
    FCGX_Request request{};
    FCGX_InitRequest(&request, kListenSocket, 0);
    int accepted = acceptRequest(&request);
    while (accepted >= 0) {
        {
            const BusyMark busy;
            if (const auto hook = requestHook.load())
                hook(request);
            const int status = controller->doService(&request);
            if (status != http_status::kOk)
                onError(&request, status);
            finish(request);
        }
        accepted = acceptRequest(&request);
    }
    app_log(kLogModule, LOG_WARNING, "FCGIServer::run() accept request failed. err= %d\n",
            accepted);
    return -1;
}

void FCGIServer::setRequestHook(void (*hook)(FCGX_Request&)) {
    requestHook = hook;
}

void FCGIServer::onError(FCGX_Request* request, int status) {
    assert(request != nullptr);
    FCGX_FPrintF(request->out, "Status: %d \r\n", status);
    FCGX_FPrintF(request->out, "ContentType: text/html \r\n");
    FCGX_FPrintF(request->out, "\r\n");
    if (status == http_status::kNotFound)
        FCGX_FPrintF(request->out, "<h1>404 - Not Found</h1>");
    else if (status == http_status::kInternalServerError)
        FCGX_FPrintF(request->out, "<h2>500 - Service not avaliable now !</h2>");
}

int FCGIServer::onTimer() {
    return controller->onTimer();
}

ServletController* FCGIServer::getController() {
    return controller.get();
}
