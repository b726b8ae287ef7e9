// Replaces times(2) in a test program: a tick clock that the test sets. Any thread.
#ifndef KIT_TESTING_TEST_CLOCK_H
#define KIT_TESTING_TEST_CLOCK_H

namespace kit::testing::test_clock {

// Sets the clock, which has 100 ticks a second and starts at 1,000 seconds.
void setTicks(long ticks);
// Sets the clock forward.
void advanceSeconds(long seconds);
// Returns the clock's time in whole seconds.
int seconds();

} // namespace kit::testing::test_clock

#endif
