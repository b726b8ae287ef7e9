#include "kit/attempt_limit.h"

#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

using kit::AttemptLimit;
using kit::testing::test_clock::advanceSeconds;

TEST(AttemptLimit, AllowsTheFirstAttempts) {
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0) << i;
    }
    EXPECT_EQ(limit.begin("192.0.2.1"), AttemptLimit::kFirstWait);
}

TEST(AttemptLimit, DoublesTheWaitUpToALimit) {
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        limit.begin("192.0.2.1");
    }
    long expected = AttemptLimit::kFirstWait;
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), expected);
        advanceSeconds(expected - 1);
        EXPECT_EQ(limit.begin("192.0.2.1"), 1)
            << "an attempt that is refused does not lengthen the wait";
        advanceSeconds(1);
        EXPECT_EQ(limit.begin("192.0.2.1"), 0);
        expected = std::min(2 * expected, AttemptLimit::kMaxWait);
    }
    EXPECT_EQ(expected, AttemptLimit::kMaxWait);
}

#if LONG_MAX == INT_MAX
TEST(AttemptLimit, KeepsItsWaitWhenA32BitClockWraps) {
    kit::testing::test_clock::setTicks(LONG_MAX - 100);
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        limit.begin("192.0.2.1");
    }
    advanceSeconds(AttemptLimit::kFirstWait + 1);
    ASSERT_LT(kit::testing::test_clock::seconds(), 0);
    EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    kit::testing::test_clock::setTicks(100000);
}
#endif

TEST(AttemptLimit, ForgetsAfterASuccess) {
    AttemptLimit limit;
    limit.begin("192.0.2.1");
    limit.begin("192.0.2.1");
    limit.succeeded("192.0.2.1");
    EXPECT_EQ(limit.size(), 0u);
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    }
}

TEST(AttemptLimit, ForgetsAfterALongTime) {
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        limit.begin("192.0.2.1");
    }
    advanceSeconds(AttemptLimit::kFirstWait + AttemptLimit::kMaxWait + 1);
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    }
}

TEST(AttemptLimit, KeepsAddressesApart) {
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        limit.begin("192.0.2.1");
    }
    EXPECT_NE(limit.begin("192.0.2.1"), 0);
    EXPECT_EQ(limit.begin("192.0.2.2"), 0);
    EXPECT_EQ(limit.begin(""), 0);
}

TEST(AttemptLimit, CountsAnIPv6NetworkAsOneClient) {
    AttemptLimit limit;
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("2001:db8:1:2::" + std::to_string(i)), 0);
    }
    EXPECT_NE(limit.begin("2001:db8:1:2:ffff::"), 0);
    EXPECT_EQ(limit.begin("2001:db8:1:3::1"), 0);
}

TEST(AttemptLimit, RemembersABoundedNumberOfAddresses) {
    AttemptLimit limit;
    const auto guess = [&] {
        const long wait = limit.begin("the guesser");
        return wait != 0;
    };
    for (std::size_t i = 0; i < 4 * AttemptLimit::kMaxAddresses; ++i) {
        advanceSeconds(2 * AttemptLimit::kSecondsInAll);
        EXPECT_EQ(limit.begin("address " + std::to_string(i)), 0);
        guess();
        EXPECT_LE(limit.size(), AttemptLimit::kMaxAddresses);
    }
    EXPECT_EQ(limit.size(), AttemptLimit::kMaxAddresses);
    guess();
    limit.begin("one more");
    EXPECT_TRUE(guess()) << "an address that has to wait is not forgotten";
}

// The attack: one guess from each of many addresses.
TEST(AttemptLimit, BrakesAllAddressesTogether) {
    AttemptLimit limit;
    int address = 0;
    const auto guess = [&] { return limit.begin("192.0.2." + std::to_string(++address)); };
    for (int i = 0; i < AttemptLimit::kFreeInAll; ++i) {
        EXPECT_EQ(guess(), 0) << i;
    }
    int allowed = 0;
    for (int i = 0; i < 300; ++i) {
        EXPECT_LE(guess(), AttemptLimit::kSecondsInAll);
        if (i % 3 == 0) {
            advanceSeconds(1);
        }
        allowed += guess() == 0 ? 1 : 0;
    }
    EXPECT_EQ(allowed, 100 / AttemptLimit::kSecondsInAll);
    advanceSeconds(AttemptLimit::kFreeInAll * AttemptLimit::kSecondsInAll);
    for (int i = 0; i < AttemptLimit::kFreeInAll; ++i) {
        EXPECT_EQ(guess(), 0) << "after a quiet time";
    }
}

TEST(AttemptLimit, LetsAddressesThatAreKnownTryWhileOthersGuess) {
    AttemptLimit limit;
    EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    limit.succeeded("192.0.2.1");
    for (int i = 0; i < 2 * AttemptLimit::kFreeInAll; ++i) {
        limit.begin("198.51.100." + std::to_string(i));
    }
    EXPECT_NE(limit.begin("192.0.2.2"), 0);
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    }
    EXPECT_EQ(limit.begin("192.0.2.1"), AttemptLimit::kFirstWait) << "it has its own limit";
}

TEST(AttemptLimit, RemembersTheLastRightPasswordsOnly) {
    AttemptLimit limit;
    for (std::size_t i = 0; i <= AttemptLimit::kMaxKnown; ++i) {
        const std::string address = "192.0.2." + std::to_string(i);
        EXPECT_EQ(limit.begin(address), 0);
        limit.succeeded(address);
        limit.succeeded(address);
    }
    for (int i = 0; i < 2 * AttemptLimit::kFreeInAll; ++i) {
        limit.begin("198.51.100." + std::to_string(i));
    }
    EXPECT_NE(limit.begin("192.0.2.0"), 0);
    EXPECT_EQ(limit.begin("192.0.2.1"), 0);
}

TEST(AttemptLimit, DoesNotCountRightPasswordsInAll) {
    AttemptLimit limit;
    for (int i = 0; i < 3 * AttemptLimit::kFreeInAll; ++i) {
        const std::string address = "192.0.2." + std::to_string(i);
        EXPECT_EQ(limit.begin(address), 0) << i;
        limit.succeeded(address);
    }
}

TEST(AttemptLimit, TakesAttemptsBackThatCouldNotBeChecked) {
    AttemptLimit limit;
    for (int i = 0; i < 3 * AttemptLimit::kFreeInAll; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0) << i;
        limit.withdraw("192.0.2.1");
    }
    limit.withdraw("192.0.2.99");
    for (int i = 0; i < AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    }
    EXPECT_EQ(limit.begin("192.0.2.1"), AttemptLimit::kFirstWait);
    advanceSeconds(AttemptLimit::kFirstWait);
    EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    limit.withdraw("192.0.2.1");
    EXPECT_EQ(limit.begin("192.0.2.1"), 0);
    EXPECT_EQ(limit.begin("192.0.2.1"), 2 * AttemptLimit::kFirstWait);
}

TEST(AttemptLimit, CountsParallelAttempts) {
    AttemptLimit limit;
    std::vector<std::thread> threads;
    std::atomic<int> allowed{0};
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] { allowed += limit.begin("192.0.2.1") == 0 ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(allowed, AttemptLimit::kFreeAttempts);
}
