#include "daemon.h"

#include "accept_gate.h"
#include "account.h"
#include "failure.h"
#include "fcgi_server.h"
#include "listen_socket.h"
#include "log_control.h"
#include "loop_activity.h"
#include "request_loops.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "signal_commands.h"
#include "signals.h"

#include <malloc.h>
#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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
// with spare room of its own.
void useOneHeap() {
    mallopt(M_ARENA_MAX, 1);
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

void runTimer(FCGIServer& server) {
    if (server.onTimer() == 0)
        server.getController()->getSessionFactory()->sweepUnused();
}

// Runs the timer every `interval` and handles signals. Returns when a stop signal has arrived.
void serveUntilStopped(FCGIServer& server, const RequestLoops& loops,
                       std::chrono::seconds interval) {
    auto deadline = Clock::now() + interval;
    for (;;) {
        const int signal = waitForSignal(deadline - Clock::now());
        if (isStopSignal(signal))
            return;
        handleSignal(signal, server, loops);
        if (Clock::now() < deadline)
            continue;
        runTimer(server);
        deadline = Clock::now() + interval;
    }
}

// Handles the signals that have arrived meanwhile; a stop signal ends the process at once.
void handlePendingSignals(FCGIServer& server, const RequestLoops& loops) {
    while (const int signal = waitForSignal(Clock::duration::zero())) {
        if (isStopSignal(signal))
            std::_Exit(fail(kSignalStatus + signal, "ended at once by a second signal"));
        handleSignal(signal, server, loops);
    }
}

// Graceful shutdown: accepts no further request and waits for those in flight, for up to `drain`.
void finishRequests(AcceptGate& gate, FCGIServer& server, RequestLoops& loops,
                    std::chrono::seconds drain) {
    // Explains the errors that the loops log next, when they can accept no more.
    std::fputs("fcgi_host: stopping; finishing the requests under way\n", stderr);
    const auto deadline = Clock::now() + std::max<Clock::duration>(drain, kLeastDrain);
    loops.stop();
    gate.close();
    gate.wake(loops);
    while (!loops.waitForEnd(kWakeInterval)) {
        handlePendingSignals(server, loops);
        if (Clock::now() > deadline)
            std::_Exit(fail(EX_TEMPFAIL, "ended with requests under way after " +
                                             std::to_string(drain.count()) + " s"));
        gate.wake(loops);
    }
}

// Serves on all loops until a stop signal arrives and the requests in flight are finished.
void serve(const Options& options, AcceptGate& gate, FCGIServer& server) {
    RequestLoops loops([&server] { server.run(); }, options.threads);
    if (loops.count() < options.threads)
        fail(EX_OSERR, "only " + std::to_string(loops.count()) + " threads could be started");
    serveUntilStopped(server, loops, std::chrono::seconds(options.timerSeconds));
    finishRequests(gate, server, loops, std::chrono::seconds(options.drainSeconds));
}

} // namespace

int runDaemon(const Options& options) {
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
    SessionFactory::recordUses(true);
    SessionFactory::setMaxSessions(options.maxSessions);
    const auto server = std::make_unique<FCGIServer>();
    if (!server->getController()->isComplete()) {
        gate->close();
        return fail(EX_CONFIG, "the plug-in configuration could not be read, or a listener in it "
                               "could not be created; see the log");
    }
    serve(options, *gate, *server);
    // A plug-in that hangs when it is destroyed, below, is ended by a second signal too.
    unblockStopSignals();
    return EX_OK;
}
