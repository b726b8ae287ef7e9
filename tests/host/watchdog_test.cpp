#include "watchdog.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

class WatchdogOfTwoLoops : public testing::Test {
protected:
    bool check(unsigned long requests, int busy, bool isClientWaiting) {
        m_now = m_watchdog.due();
        return m_watchdog.check({requests, busy, 2, isClientWaiting}, m_now);
    }

    Watchdog::Clock::time_point m_now;
    Watchdog m_watchdog{4s, m_now};
};

TEST_F(WatchdogOfTwoLoops, ChecksFourTimesBeforeTheTimeIsOver) {
    EXPECT_EQ(m_watchdog.due(), m_now + 1s);
    check(0, 0, false);
    EXPECT_EQ(m_watchdog.due(), m_now + 1s);
}

TEST_F(WatchdogOfTwoLoops, IsFedWhileOneIsIdle) {
    EXPECT_TRUE(check(0, 0, false));
    EXPECT_TRUE(check(0, 0, false));
    EXPECT_TRUE(check(1, 1, false));
    EXPECT_TRUE(check(1, 1, false)); // a long upload
}

TEST_F(WatchdogOfTwoLoops, IsNotFedWhileBothServeTheSameRequests) {
    EXPECT_TRUE(check(2, 2, false)); // both were taken since the start
    EXPECT_FALSE(check(2, 2, false));
    EXPECT_FALSE(check(2, 2, true));
    EXPECT_TRUE(check(2, 1, false));
}

TEST_F(WatchdogOfTwoLoops, IsFedUnderLoad) {
    for (unsigned long requests = 3; requests < 9; requests += 3)
        EXPECT_TRUE(check(requests, 2, true));
}

TEST_F(WatchdogOfTwoLoops, IsNotFedWhileAnIdleOneTakesNoWaitingClient) {
    EXPECT_TRUE(check(7, 0, true));
    EXPECT_FALSE(check(7, 0, true));
    EXPECT_FALSE(check(7, 1, true));
    EXPECT_TRUE(check(7, 0, false));
}

TEST(Watchdog, IsNeverDueWithoutATime) {
    EXPECT_EQ(Watchdog(0us, {}).due(), Watchdog::Clock::time_point::max());
}

} // namespace
