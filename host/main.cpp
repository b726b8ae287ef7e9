// fcgi_host: the daemon around one FCGIServer.
#include "accept_gate.h"
#include "account.h"
#include "app_log.h"
#include "fcgi_server.h"
#include "listen_socket.h"
#include "log_control.h"
#include "loop_activity.h"
#include "options.h"
#include "request_loops.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "status.h"

#include <fcntl.h>
#include <malloc.h>
#include <sysexits.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point kBegin = Clock::now();

// Not constants: the C library keeps some of the realtime signals for itself.
const int kMoreLogSignal = SIGRTMIN + 1;
const int kLessLogSignal = SIGRTMIN + 2;
constexpr int kStatusSignal = SIGUSR2;
constexpr int kSignalStatus = 128; // plus the signal's number, as shells count
constexpr auto kWakeInterval = std::chrono::milliseconds(50);
constexpr auto kTimeToEnd = std::chrono::milliseconds(250); // of loops that serve nothing

int fail(int status, const std::string& message) {
    std::fprintf(stderr, "fcgi_host: %s\n", message.c_str());
    return status;
}

// A daemon may be started with these closed; what is opened next would be taken for one of them.
void fillStandardDescriptors() {
    int fd = -1;
    do
        fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

// All that waitForSignal() takes: none of them interrupts a thread that serves.
sigset_t obeyedSignals() {
    sigset_t signals = stopSignals();
    for (const int signal : {kStatusSignal, kMoreLogSignal, kLessLogSignal})
        sigaddset(&signals, signal);
    return signals;
}

// Before any thread is started and before the FastCGI kit looks: it installs handlers that end
// the process's accepting or drop requests under way where it finds the default ones.
void arrangeSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked = obeyedSignals();
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

// At the end of each request the FastCGI kit waits for the web server to close the connection, so
// that the web server, should it be sending still, does not lose the answer. That is most of a
// request's time, and for nothing: FCGIServer waits where a body has not been read. The kit reads
// the variable once, when the server is made.
void leaveTheWaitToTheServer() {
    constexpr int kUnlessSet = 0;
    setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", kUnlessSet);
}

// So that lines of requests that are served at once can be told apart.
void markLogLines() {
    if (app_log_mark_requests != nullptr)
        app_log_mark_requests([] {
            const CurrentRequest current = currentRequest();
            return app_log_request{current.thread, current.number};
        });
}

// Else each request loop allocates from a heap of its own, with its own room to spare.
void shareOneHeap() {
    mallopt(M_ARENA_MAX, 1);
}

// The signal that arrives within `time`, else 0.
int waitForSignal(Clock::duration time) {
    using namespace std::chrono;
    const auto left = std::max(time, Clock::duration::zero());
    const auto whole = duration_cast<seconds>(left);
    const timespec limit{static_cast<time_t>(whole.count()),
                         static_cast<long>(duration_cast<nanoseconds>(left - whole).count())};
    const sigset_t signals = obeyedSignals();
    return std::max(sigtimedwait(&signals, nullptr, &limit), 0);
}

bool isToStop(int signal) {
    const sigset_t signals = stopSignals();
    return sigismember(&signals, signal) == 1;
}

// Into the log, where whoever sent the signal looks for it, whatever the threshold is.
void answer(const std::string& text) {
    constexpr int kModule = 65;
    int level = LOG_NOTICE;
    if (app_log_threshold != nullptr)
        level = std::min(level, app_log_threshold());
    app_log(kModule, level, "fcgi_host: %s\n", text.c_str());
}

// By one level, but so that no signal hides errors.
void changeThreshold(int step) {
    if (app_log_threshold == nullptr || app_log_set_threshold == nullptr) {
        answer("this device's log has no threshold to change");
        return;
    }
    const int before = app_log_threshold();
    const int after = std::clamp(before + step, std::min(before, LOG_ERR), LOG_DEBUG);
    app_log_set_threshold(after);
    answer("threshold level=" + std::to_string(after) + " before=" + std::to_string(before));
}

void tellStatus(FCGIServer& server, const RequestLoops& loops) {
    Status status;
    status.uptime = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - kBegin);
    const LoopActivity activity = loopActivity();
    status.requests = activity.requests;
    status.busyLoops = activity.busy;
    status.loops = loops.count();
    status.sessions = server.getController()->getSessionFactory()->sessionNum();
    status.memory = processMemory();
    answer(statusLine(status));
}

// A signal that is not to stop, or 0.
void obey(int signal, FCGIServer& server, const RequestLoops& loops) {
    if (signal == kStatusSignal)
        tellStatus(server, loops);
    else if (signal == kMoreLogSignal)
        changeThreshold(+1);
    else if (signal == kLessLogSignal)
        changeThreshold(-1);
}

void runTimer(FCGIServer& server) {
    if (server.onTimer() == 0)
        server.getController()->getSessionFactory()->onTimer();
}

void serveUntilStopped(FCGIServer& server, const RequestLoops& loops,
                       std::chrono::seconds interval) {
    auto deadline = Clock::now() + interval;
    for (;;) {
        const int signal = waitForSignal(deadline - Clock::now());
        if (isToStop(signal))
            return;
        obey(signal, server, loops);
        if (Clock::now() < deadline)
            continue;
        runTimer(server);
        deadline = Clock::now() + interval;
    }
}

void finishRequests(AcceptGate& gate, FCGIServer& server, RequestLoops& loops,
                    std::chrono::seconds drain) {
    // The loops each log that accepting failed; this says why.
    std::fputs("fcgi_host: stopping; finishing the requests under way\n", stderr);
    const auto deadline = Clock::now() + std::max<Clock::duration>(drain, kTimeToEnd);
    loops.stop();
    gate.close();
    gate.wake(loops);
    while (!loops.waitForEnd(kWakeInterval)) {
        while (const int signal = waitForSignal(Clock::duration::zero())) {
            if (isToStop(signal))
                std::_Exit(fail(kSignalStatus + signal, "ended at once by a second signal"));
            obey(signal, server, loops);
        }
        if (Clock::now() > deadline)
            std::_Exit(fail(EX_TEMPFAIL, "ended with requests under way after " +
                                             std::to_string(drain.count()) + " s"));
        gate.wake(loops);
    }
}

// The listening socket, at file descriptor 0, or the exit status.
std::optional<AcceptGate> openGate(const Options& options, const std::optional<Account>& account,
                                   int& status) {
    std::string error;
    std::optional<OwnSocket> own;
    if (!options.listen.empty()) {
        const auto address = parseSocketAddress(options.listen, error);
        if (!address) {
            status = fail(EX_USAGE, error);
            return std::nullopt;
        }
        own = OwnSocket::open(*address, {options.socketMode, account}, error);
        if (!own) {
            status = fail(EX_UNAVAILABLE, error);
            return std::nullopt;
        }
    } else if (!takeInheritedSocket()) {
        status = fail(EX_USAGE, "file descriptor 0 is no listening socket; start this from a web "
                                "server, or give --listen PATH or --listen ADDRESS:PORT");
        return std::nullopt;
    }
    auto gate = AcceptGate::open(std::move(own), error);
    if (!gate)
        status = fail(EX_OSERR, error);
    return gate;
}

int serve(const Options& options) {
    arrangeSignals();
    shareOneHeap();
    std::string error;
    std::optional<Account> account;
    if (!options.user.empty() && !(account = findAccount(options.user, error)))
        return fail(EX_NOUSER, error);
    int status = EX_OK;
    auto gate = openGate(options, account, status);
    if (!gate)
        return status;
    if (account && !become(*account, error)) {
        gate->close();
        return fail(EX_OSERR, error);
    }
    leaveTheWaitToTheServer();
    markLogLines();
    const auto server = std::make_unique<FCGIServer>();
    {
        RequestLoops loops([&server] { server->run(); }, options.threads);
        if (loops.count() < options.threads)
            fail(EX_OSERR, "only " + std::to_string(loops.count()) + " threads could be started");
        serveUntilStopped(*server, loops, std::chrono::seconds(options.timerSeconds));
        finishRequests(*gate, *server, loops, std::chrono::seconds(options.drainSeconds));
    }
    // A plug-in that does not come to an end is ended by a second signal, too.
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    return EX_OK;
}

int run(int argc, char** argv) {
    std::string error;
    const auto options = parseOptions(argc, argv, error);
    if (!options)
        return fail(EX_USAGE, error + "; see fcgi_host --help");
    switch (options->action) {
    case Options::Action::Help:
        std::fputs(kHelpText, stdout);
        return EX_OK;
    case Options::Action::Version:
        std::puts("fcgi_host " FCGI_HOST_VERSION);
        return EX_OK;
    case Options::Action::Serve:
        break;
    }
    return serve(*options);
}

} // namespace

int main(int argc, char** argv) {
    try {
        fillStandardDescriptors();
        return run(argc, argv);
    } catch (const std::exception& problem) {
        // Not exit(3): request loops may be running.
        std::_Exit(fail(EX_OSERR, problem.what()));
    }
}
