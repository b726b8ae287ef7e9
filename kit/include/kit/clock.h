// The clock that sessions go by.
#ifndef KIT_CLOCK_H
#define KIT_CLOCK_H

#include <sys/times.h>

namespace kit {

// Seconds of the system's tick clock, which has 100 ticks a second; see times(2). It starts
// anywhere, never goes back, and knows no time of day.
inline long clockSeconds() {
    struct tms ignored {};
    return static_cast<long>(times(&ignored)) / 100;
}

} // namespace kit

#endif
