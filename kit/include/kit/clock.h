// The clock that session time-outs are measured with.
#ifndef KIT_CLOCK_H
#define KIT_CLOCK_H

#include <sys/times.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace kit {

// Returns the seconds of the system's tick clock, see times(2), for measuring intervals: it starts
// at an arbitrary value, never goes back, and is not the time of day. Any thread.
inline long clockSeconds() {
    // A 32-bit clock_t wraps to its minimum every 497 days, first after 248 days or, since the
    // kernel need not count from 0, after 49.7 (with HZ=250). Counting the ticks since the last
    // call bridges that, as long as one request comes within 248 days.
    constexpr int kTicksPerSecond = 100;
    using Ticks = std::make_unsigned_t<clock_t>;
    struct tms ignored {};
    static std::atomic<std::int64_t> latest{times(&ignored)};
    std::int64_t known = latest;
    const Ticks passed = static_cast<Ticks>(times(&ignored)) - static_cast<Ticks>(known);
    const std::int64_t now = known + static_cast<clock_t>(passed);
    while (known < now && !latest.compare_exchange_weak(known, now)) {
    }
    return static_cast<long>(now / kTicksPerSecond);
}

} // namespace kit

#endif
