#include "watchdog.h"

#include <cassert>

Watchdog::Watchdog(std::chrono::microseconds time, Clock::time_point now)
    : m_interval(time / kChecks),
      m_due(time.count() > 0 ? now + m_interval : Clock::time_point::max()) {}

bool Watchdog::check(const LoopState& state, Clock::time_point now) {
    assert(now >= m_due); // "when a check is due"
    m_due = now + m_interval;
    const bool hasTakenOne = state.requests != m_requests;
    m_requests = state.requests;
    return hasTakenOne || (state.busy < state.loops && !state.isClientWaiting);
}
