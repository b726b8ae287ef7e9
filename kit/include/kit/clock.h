// The clock that sessions go by.
#ifndef KIT_CLOCK_H
#define KIT_CLOCK_H

#include <sys/times.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace kit {

// Seconds of the system's tick clock, which has 100 ticks a second; see times(2). It starts
// anywhere, never goes back, and knows no time of day. Any thread.
inline long clockSeconds() {
    // A clock_t of 32 bits starts again from below after 248 days. Requests come more often.
    using Ticks = std::make_unsigned_t<clock_t>;
    struct tms ignored {};
    static std::atomic<std::int64_t> latest{times(&ignored)};
    std::int64_t known = latest;
    const Ticks passed = static_cast<Ticks>(times(&ignored)) - static_cast<Ticks>(known);
    const std::int64_t now = known + static_cast<clock_t>(passed);
    while (known < now && !latest.compare_exchange_weak(known, now)) {
    }
    return static_cast<long>(now / 100);
}

} // namespace kit

#endif
