#include "signals.h"

#include <algorithm>
#include <cassert>

namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

sigset_t handledSignals() {
    sigset_t signals = stopSignals();
    for (const int signal : {kStatusSignal, kRaiseLogLevelSignal, kLowerLogLevelSignal})
        sigaddset(&signals, signal);
    return signals;
}

} // namespace

void blockSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked = handledSignals();
    sigaddset(&blocked, SIGUSR1); // libfcgi's, never taken
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

void unblockStopSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

int waitForSignal(std::chrono::steady_clock::duration time) {
    using namespace std::chrono;
    const auto left = std::max(time, steady_clock::duration::zero());
    const auto whole = duration_cast<seconds>(left);
    const timespec limit{static_cast<time_t>(whole.count()),
                         static_cast<long>(duration_cast<nanoseconds>(left - whole).count())};
    const sigset_t signals = handledSignals();
    return std::max(sigtimedwait(&signals, nullptr, &limit), 0);
}

bool isStopSignal(int signal) {
    const sigset_t signals = stopSignals();
    return sigismember(&signals, signal) == 1;
}

const char* stopSignalName(int signal) {
    assert(isStopSignal(signal)); // "of a stop signal"
    if (signal == SIGTERM)
        return "SIGTERM";
    return signal == SIGINT ? "SIGINT" : "SIGHUP";
}
