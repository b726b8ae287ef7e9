#include "request_loops.h"

#include <pthread.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

constexpr int kListenSocket = 0;

pthread_mutex_t acceptLock = PTHREAD_MUTEX_INITIALIZER;

void stop(int) {
    shutdown(kListenSocket, SHUT_RD);
}

int acceptRequest(FCGX_Request& request) {
    pthread_mutex_lock(&acceptLock);
    const int result = FCGX_Accept_r(&request);
    pthread_mutex_unlock(&acceptLock);
    return result;
}

void run(Serve serve) {
    FCGX_Request request;
    FCGX_InitRequest(&request, kListenSocket, 0);
    while (acceptRequest(request) >= 0) {
        serve(request);
        FCGX_Finish_r(&request);
    }
}

} // namespace

void serveRequests(int argc, char** argv, Serve serve) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTERM, stop);
    FCGX_Init();
    std::vector<std::thread> others;
    for (long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1; count > 1; --count)
        others.emplace_back(run, serve);
    run(serve);
    for (std::thread& other : others)
        other.join();
}
