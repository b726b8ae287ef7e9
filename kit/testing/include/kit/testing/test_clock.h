// Takes the place of times(2) in a test program: a tick clock that goes only when it is told to.
#ifndef KIT_TESTING_TEST_CLOCK_H
#define KIT_TESTING_TEST_CLOCK_H

namespace kit::testing::test_clock {

// The clock has 100 ticks a second and starts at 1,000 seconds.
void setTicks(long ticks);
void advanceSeconds(long seconds);
// What the clock shows, in whole seconds.
int seconds();

} // namespace kit::testing::test_clock

#endif
