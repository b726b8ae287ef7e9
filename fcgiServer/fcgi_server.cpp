#include "fcgi_server.h"

#include "app_log.h"
#include "environment.h"
#include "servlet_controller.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kListenSocket = 0;
constexpr int kServed = 200;
constexpr std::chrono::seconds kLongestRest{2};

// The kit's accept is not to be entered twice at once, whatever servers the process has.
pthread_mutex_t acceptLock = PTHREAD_MUTEX_INITIALIZER;

int acceptRequest(FCGX_Request* request) {
    pthread_mutex_lock(&acceptLock);
    const int result = FCGX_Accept_r(request);
    pthread_mutex_unlock(&acceptLock);
    return result;
}

// A chunked body is announced without a length.
bool announcesBody(const FCGX_Request& request) {
    const char* length = variableOf(request.envp, "CONTENT_LENGTH");
    const bool empty = length == nullptr || *length == '\0' || std::strcmp(length, "0") == 0;
    return !empty || variableOf(request.envp, "HTTP_TRANSFER_ENCODING") != nullptr;
}

// Until the front server, which has the answer, closes the connection. Against one that does not
// there is a limit, as long as the kit's own wait where nobody sets that.
void waitUntilClosed(int connection) {
    // What is sent ends here; some front servers wait for that before they close.
    shutdown(connection, SHUT_WR);
    const auto deadline = Clock::now() + kLongestRest;
    pollfd polled[] = {{connection, POLLIN, 0}};
    char rest[4096];
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 ||
            poll(polled, std::size(polled), static_cast<int>(left.count())) <= 0 ||
            read(connection, rest, sizeof rest) <= 0)
            return;
    }
}

// A front server that is still sending the body may give up the answer when its connection is
// closed on it. So the answer goes out whole before the end of the body is waited for: a client
// that sends slowly, or never to the end, would hold up both the answer and this thread.
//
// The end of a body that is none comes with the rest of the request, or at once behind it: the kit
// has it, or waits for it.
void answerBeforeTheBodyEnds(FCGX_Request& request) {
    FCGX_FClose(request.err);
    FCGX_FClose(request.out);
    if (announcesBody(request) || FCGX_GetChar(request.in) != EOF)
        waitUntilClosed(request.ipcFd);
}

void finish(FCGX_Request& request) {
    const bool isConnected = request.ipcFd > kListenSocket && !request.keepConnection;
    if (isConnected && FCGX_HasSeenEOF(request.in) == 0)
        answerBeforeTheBodyEnds(request);
    FCGX_Finish_r(&request);
}

std::atomic<unsigned long> acceptedRequests{0};
std::atomic<int> busyThreads{0};
std::atomic<int> numberedThreads{0};
thread_local CurrentRequest currentOfThread{0, 0};

// Its life is that of a request, from accepting to the end of its connection.
class Serving {
public:
    Serving() {
        if (currentOfThread.thread == 0)
            currentOfThread.thread = ++numberedThreads;
        currentOfThread.number = ++acceptedRequests;
        ++busyThreads;
    }
    ~Serving() {
        --busyThreads;
        currentOfThread.number = 0;
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
};

} // namespace

CurrentRequest currentRequest() {
    return currentOfThread;
}

LoopActivity loopActivity() {
    return {acceptedRequests, busyThreads};
}

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
        {
            const Serving serving;
            const int status = controller->doService(&request);
            if (status != kServed)
                onError(&request, status);
            finish(request);
        }
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
