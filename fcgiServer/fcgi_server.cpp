#include "fcgi_server.h"

#include "app_log.h"
#include "servlet_controller.h"

#include <pthread.h>

namespace {

constexpr int kListenSocket = 0;
constexpr int kServed = 200;

// The kit's accept is not to be entered twice at once, whatever servers the process has.
pthread_mutex_t acceptLock = PTHREAD_MUTEX_INITIALIZER;

int acceptRequest(FCGX_Request* request) {
    pthread_mutex_lock(&acceptLock);
    const int result = FCGX_Accept_r(request);
    pthread_mutex_unlock(&acceptLock);
    return result;
}

} // namespace

FCGIServer::FCGIServer() {
    FCGX_Init();
    controller = new ServletController();
    controller->init();
}

FCGIServer::FCGIServer(const char* configFile) {
    FCGX_Init();
    controller = new ServletController(configFile);
    controller->init();
}

FCGIServer::~FCGIServer() {
    if (controller == nullptr)
        return;
    controller->destroy();
    delete controller;
    controller = nullptr;
}

int FCGIServer::run() {
    FCGX_Request request;
    FCGX_InitRequest(&request, kListenSocket, 0);
    int accepted = acceptRequest(&request);
    while (accepted >= 0) {
        const int status = controller->doService(&request);
        if (status != kServed)
            onError(&request, status);
        FCGX_Finish_r(&request);
        accepted = acceptRequest(&request);
    }
    app_log(65, 4, "FCGIServer::run() accept request failed. err= %d\n", accepted);
    return -1;
}

void FCGIServer::onError(FCGX_Request* request, int status) {
    FCGX_FPrintF(request->out, "Status: %d \r\n", status);
    FCGX_FPrintF(request->out, "ContentType: text/html \r\n");
    FCGX_FPrintF(request->out, "\r\n");
    if (status == 404)
        FCGX_FPrintF(request->out, "<h1>404 - Not Found</h1>");
    else if (status == 500)
        FCGX_FPrintF(request->out, "<h2>500 - Service not avaliable now !</h2>");
}

int FCGIServer::onTimer() {
    return controller->onTimer();
}

ServletController* FCGIServer::getController() {
    return controller;
}
