// A small but complete host: serves the device's plug-ins on a Unix socket of its own.
//     small_host SOCKET SECONDS
// SECONDS is the interval of the timer.

#include <fcgi_server.h>
#include <servlet_controller.h>
#include <session_factory.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sysexits.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int kListenFd = 0; // where libfcgi expects the listening socket
constexpr std::size_t kThreads = 4;
constexpr unsigned kStopSeconds = 10;

std::atomic<bool> stopping{false};

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

// Makes only the main thread take the stop signals: a handler could interrupt a request.
void blockSignals() {
    std::signal(SIGPIPE, SIG_IGN); // clients that hang up cause it
    sigset_t blocked = stopSignals();
    sigaddset(&blocked, SIGUSR1); // libfcgi's handler would stop accepting
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

// Puts a listening socket at file descriptor 0. Returns whether that worked; errno says why not.
bool listenOn(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) {
        return false;
    }
    unlink(path.c_str());              // left behind by a process that was killed
    const mode_t before = umask(0117); // the web server's group may connect, and no other
    const int bound = bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    umask(before);
    return bound == 0 && listen(listener, SOMAXCONN) == 0 && dup2(listener, kListenFd) == kListenFd;
}

// Serves until the host stops. run() returns when accepting fails: also if the process has no file
// descriptor left, so a second later it is called again.
void serve(FCGIServer& server) {
    for (server.run(); !stopping; server.run()) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

// Runs the two timers every `seconds` until a stop signal arrives.
void runTimers(FCGIServer& server, long seconds) {
    const sigset_t signals = stopSignals();
    const timespec interval{seconds, 0};
    while (sigtimedwait(&signals, nullptr, &interval) < 0) {
        if (server.onTimer() == 0) {
            server.getController()->getSessionFactory()->sweepUnused();
        }
    }
}

// Accepts nothing further, and ends the process if stopping takes too long or at a second signal.
void stopAccepting(const char* path) {
    stopping = true;
    alarm(kStopSeconds); // SIGALRM ends the process, and with it requests that hang
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    unlink(path);
    shutdown(kListenFd, SHUT_RD); // accept(2) fails once the waiting connections are served
}

} // namespace

int main(int argc, char** argv) {
    const long seconds = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 0;
    if (seconds <= 0) {
        std::cerr << "usage: small_host SOCKET SECONDS\n";
        return EX_USAGE;
    }
    blockSignals(); // before the first thread, and before libfcgi installs handlers of its own
    if (!listenOn(argv[1])) {
        std::cerr << "small_host: cannot listen on " << argv[1] << ": " << std::strerror(errno)
                  << '\n';
        return EX_UNAVAILABLE;
    }
    // Else libfcgi waits up to two seconds for each connection without a request, and all others
    // too.
    setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", 0);
    SessionFactory::recordUses(true); // before the first request: sweepUnused() needs it
    FCGIServer server;
    if (!server.getController()->isComplete()) {
        unlink(argv[1]);
        return EX_CONFIG; // a listener is missing that may have to stop requests; the log says why
    }
    std::array<std::thread, kThreads> threads;
    for (std::thread& thread : threads) {
        thread = std::thread(serve, std::ref(server));
    }
    runTimers(server, seconds);
    stopAccepting(argv[1]);
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Returning destroys the server: pages, listeners and sessions, then the plug-in library.
}
