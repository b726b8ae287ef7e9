#include "daemon.h"

#include "accept_gate.h"
#include "access_log.h"
#include "account.h"
#include "failure.h"
#include "fcgi_server.h"
#include "listen_socket.h"
#include "log_control.h"
#include "loop_activity.h"
#include "notice.h"
#include "request_loops.h"
#include "service_manager.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "signal_commands.h"
#include "signals.h"
#include "status.h"
#include "watchdog.h"

#include <malloc.h>
#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSignalStatus = 128; // shells add the signal's number to it
constexpr auto kWakeInterval = std::chrono::milliseconds(50);
constexpr auto kLeastDrain = std::chrono::milliseconds(250); // enough for idle loops to end

// Makes all request loops share one heap. By default each thread allocates from a heap of its own,
// with spare room of its own. Only glibc does so.
void useOneHeap() {
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1);
#endif
}

// Returns to the system what reading the configuration and the listeners' files took. free(3)
// itself returns only the end of the heap, and only glibc has this function.
void returnFreeMemory() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

// Makes libfcgi close a connection on which it could read no request without waiting for the front
// server to close it first, unless the environment says otherwise: it would wait while it holds up
// all other requests. libfcgi reads the variable once, when FCGIServer is created.
void disableLibfcgiCloseWait() {
    constexpr int kKeepExisting = 0;
    setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", kKeepExisting);
}

// Puts thread and request numbers into log lines, so that those of concurrent requests can be told
// apart.
void markLogLines() {
    if (app_log_mark_requests != nullptr)
        app_log_mark_requests([] {
            const CurrentRequest current = currentRequest();
            return app_log_request{current.thread, current.number};
        });
}

// Opens the socket of --listen. Returns nothing on failure, after setting `status` to the exit
// status.
std::optional<BoundSocket> openSocket(const Options& options, const std::optional<Account>& account,
                                      int& status) {
    std::string error;
    const auto address = parseSocketAddress(options.listen, error);
    if (!address) {
        status = fail(EX_USAGE, error);
        return std::nullopt;
    }
    auto bound = BoundSocket::open(*address, {options.socketMode, account}, error);
    if (!bound)
        status = fail(EX_UNAVAILABLE, error);
    return bound;
}

// Puts the listening socket, inherited or opened here, at file descriptor 0. Returns nothing on
// failure, after setting `status` to the exit status.
std::optional<AcceptGate> openGate(const Options& options, const std::optional<Account>& account,
                                   int& status) {
    std::optional<BoundSocket> bound;
    if (!options.listen.empty()) {
        bound = openSocket(options, account, status);
        if (!bound)
            return std::nullopt;
    } else if (!takeInheritedSocket()) {
        status = fail(EX_USAGE, "file descriptor 0 is no listening socket; start this from a web "
                                "server, or give --listen PATH or --listen ADDRESS:PORT");
        return std::nullopt;
    }
    std::string error;
    auto gate = AcceptGate::open(std::move(bound), error);
    if (!gate)
        status = fail(EX_OSERR, error);
    return gate;
}

// What runs between start and stop.
struct Service {
    FCGIServer& server;
    AcceptGate& gate;
    const ServiceManager& manager;
    RequestLoops loops;
    Watchdog watchdog;
};

void notify(const ServiceManager& manager, const std::string& state) {
    std::string error;
    if (!manager.notify(state, error))
        fail(EX_OSERR, error);
}

void runTimer(FCGIServer& server) {
    if (server.onTimer() == 0)
        server.getController()->getSessionFactory()->sweepUnused();
}

bool canTakeRequests(Service& service) {
    const LoopActivity activity = loopActivity();
    return service.watchdog.check({activity.requests, activity.busy, service.loops.count(),
                                   service.gate.hasPendingConnection()},
                                  Clock::now());
}

// Feeds the watchdog, if that is due and the loops can take requests. While the daemon stops they
// need not: --drain limits the time.
void feedWatchdog(Service& service, bool isStopping) {
    if (Clock::now() < service.watchdog.due())
        return;
    if (canTakeRequests(service) || isStopping)
        notify(service.manager, "WATCHDOG=1");
}

// Runs the timer every `interval` and handles signals. Returns the stop signal, once one has
// arrived.
int serveUntilStopped(Service& service, std::chrono::seconds interval) {
    auto deadline = Clock::now() + interval;
    for (;;) {
        const int signal = waitForSignal(std::min(deadline, service.watchdog.due()) - Clock::now());
        if (isStopSignal(signal))
            return signal;
        handleSignal(signal, service.server, service.loops);
        feedWatchdog(service, false);
        if (Clock::now() < deadline)
            continue;
        runTimer(service.server);
        deadline = Clock::now() + interval;
    }
}

// Logs why the daemon stops: `reason` is the name of the first stop signal, or "failure".
void logStop(const char* reason, int exitStatus) {
    const LoopActivity activity = loopActivity();
    logNotice(stoppedLine({reason, exitStatus, activity.requests, activity.busy}));
}

// Ends the process without destroying anything: the request loops are still running, and their
// destructor would wait for them. A second exception, for want of memory, aborts.
[[noreturn]] void endAfterFailure(const std::exception& problem) noexcept {
    const int status = fail(EX_OSERR, problem.what());
    logStop("failure", status);
    std::_Exit(status);
}

// Handles the signals that have arrived meanwhile; a stop signal ends the process at once.
// `stopSignal` was the first.
void handlePendingSignals(int stopSignal, Service& service) {
    while (const int signal = waitForSignal(Clock::duration::zero())) {
        if (isStopSignal(signal)) {
            logStop(stopSignalName(stopSignal), kSignalStatus + signal);
            std::_Exit(fail(kSignalStatus + signal, "ended at once by a second signal"));
        }
        handleSignal(signal, service.server, service.loops);
    }
}

// Graceful shutdown after `signal`: accepts no further request and waits for those in flight, for
// up to `drain`.
void finishRequests(int signal, Service& service, std::chrono::seconds drain) {
    notify(service.manager, "STOPPING=1");
    // Explains the errors that the loops log next, when they can accept no more.
    std::fputs("fcgi_host: stopping; finishing the requests under way\n", stderr);
    const auto deadline = Clock::now() + std::max<Clock::duration>(drain, kLeastDrain);
    service.loops.stop();
    service.gate.close();
    service.gate.wake(service.loops);
    while (!service.loops.waitForEnd(kWakeInterval)) {
        handlePendingSignals(signal, service);
        feedWatchdog(service, true);
        if (Clock::now() > deadline) {
            logStop(stopSignalName(signal), EX_TEMPFAIL);
            std::_Exit(fail(EX_TEMPFAIL, "ended with requests under way after " +
                                             std::to_string(drain.count()) + " s"));
        }
        service.gate.wake(service.loops);
    }
    logStop(stopSignalName(signal), EX_OK);
}

// Serves on all loops until a stop signal arrives and the requests in flight are finished.
void serve(const Options& options, const ServiceManager& manager, AcceptGate& gate,
           FCGIServer& server) {
    Service service{server,
                    gate,
                    manager,
                    {[&server] { server.run(); }, options.threads},
                    {manager.watchdogTime(), Clock::now()}};
    try {
        const int loops = service.loops.count();
        if (loops < options.threads)
            fail(EX_OSERR, "only " + std::to_string(loops) + " threads could be started");
        logNotice(readyLine({FCGI_HOST_VERSION, socketName(kListenFd), loops,
                             ServletController::defaultConfigFile()}));
        notify(manager, "READY=1");
        const int signal = serveUntilStopped(service, std::chrono::seconds(options.timerSeconds));
        finishRequests(signal, service, std::chrono::seconds(options.drainSeconds));
    } catch (const std::exception& problem) {
        endAfterFailure(problem);
    }
}

} // namespace

int runDaemon(const Options& options) {
    const ServiceManager manager;
    blockSignals();
    useOneHeap();
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
    disableLibfcgiCloseWait();
    markLogLines();
    if (options.accessLogHeader)
        FCGIServer::setRequestHook(
            [](FCGX_Request& request) { writeAccessLogHeader(request, currentRequest().number); });
    SessionFactory::recordUses(true);
    SessionFactory::setMaxSessions(options.maxSessions);
    const auto server = std::make_unique<FCGIServer>();
    if (!server->getController()->isComplete()) {
        gate->close();
        return fail(EX_CONFIG, "the plug-in configuration could not be read, or a listener in it "
                               "could not be created; see the log");
    }
    returnFreeMemory();
    serve(options, manager, *gate, *server);
    // A plug-in that hangs when it is destroyed, below, is ended by a second signal too.
    unblockStopSignals();
    return EX_OK;
}
