// Finds out whether the request loops are stuck, for the watchdog of the service manager.
//
// The loops can take a request if one of them has taken one since the last check, or if one is idle
// and no client is waiting: an idle loop with a waiting client is blocked while it accepts, for
// example by a request that never becomes complete. So one long upload does not matter, and all
// loops together may be busy for most of the watchdog's time.
#ifndef WATCHDOG_H
#define WATCHDOG_H

#include <chrono>

struct LoopState {
    unsigned long requests; // taken since the start
    int busy;               // loops that are serving a request
    int loops;
    bool isClientWaiting;
};

class Watchdog {
public:
    using Clock = std::chrono::steady_clock;

    // `time` is what the service manager waits for a sign of life; 0 if it does not.
    Watchdog(std::chrono::microseconds time, Clock::time_point now);

    // Returns when the loops are to be checked next; the end of time without a watchdog.
    Clock::time_point due() const { return m_due; }

    // Call when a check is due. Returns whether the loops can take requests.
    bool check(const LoopState& state, Clock::time_point now);

private:
    // Several checks fit into the time, so that a few moments at which all loops happen to be busy
    // do not look like one long one.
    static constexpr int kChecks = 4;

    Clock::duration m_interval;
    Clock::time_point m_due;
    unsigned long m_requests = 0; // at the last check
};

#endif
