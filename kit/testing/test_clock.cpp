#include <kit/testing/test_clock.h>

#include <sys/times.h>

#include <atomic>

namespace {

constexpr long kTicksPerSecond = 100;
std::atomic<long> now{1000 * kTicksPerSecond};

} // namespace

void kit::testing::test_clock::setTicks(long ticks) {
    now = ticks;
}
void kit::testing::test_clock::advanceSeconds(long seconds) {
    now += seconds * kTicksPerSecond;
}
int kit::testing::test_clock::seconds() {
    return static_cast<int>(now / kTicksPerSecond);
}

// Visible even with -fvisibility=hidden, so that plug-in libraries call this function too.
extern "C" __attribute__((visibility("default"))) clock_t times(struct tms*) noexcept {
    return now;
}
