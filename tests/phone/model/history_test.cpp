// The measurements of the last hour.
#include "model/history.h"

#include <gtest/gtest.h>

#include <iostream>
#include <thread>

using namespace phone;
using std::chrono::seconds;

namespace {

constexpr std::uint64_t kKiB = 1024;

Reading reading(int minute, std::uint64_t used, std::uint64_t received = 0, std::uint64_t sent = 0,
                std::uint64_t events = 0) {
    return {seconds(60 * minute), {1000 * kKiB, (1000 - used) * kKiB}, {received, sent}, events};
}

// Adds one reading for each minute, from minute 0 on; minute i uses i KiB.
void recordMinutes(History& history, int count) {
    for (int i = 0; i <= count; ++i) {
        history.add(reading(i, static_cast<std::uint64_t>(i)));
    }
}

} // namespace

TEST(History, IsEmptyUntilAnIntervalHasEnded) {
    History history;
    EXPECT_TRUE(history.since(0).samples.empty());
    history.add(reading(0, 100, 5000, 700, 3));
    EXPECT_TRUE(history.since(0).samples.empty());
    EXPECT_EQ(history.since(0).next, 0U);
    EXPECT_EQ(history.since(0).events, 3U);
}

TEST(History, ComparesEachReadingWithTheOneBefore) {
    History history;
    history.add(reading(0, 100, 6000, 600, 3));
    history.add(reading(1, 120, 6000 + 60 * 50, 600 + 60 * 7, 5));
    history.add(reading(3, 90, 6000 + 60 * 50 + 120 * 2000, 600 + 60 * 7, 5));
    const History::Part part = history.since(0);
    ASSERT_EQ(part.samples.size(), 2U);
    EXPECT_EQ(part.samples[0].memoryUsed, 120U);
    EXPECT_EQ(part.samples[0].received, 50U);
    EXPECT_EQ(part.samples[0].sent, 7U);
    EXPECT_EQ(part.samples[0].events, 2U);
    EXPECT_EQ(part.samples[1].memoryUsed, 90U);
    EXPECT_EQ(part.samples[1].received, 2000U) << "two minutes, not one";
    EXPECT_EQ(part.samples[1].sent, 0U);
    EXPECT_EQ(part.samples[1].events, 0U);
    EXPECT_EQ(part.events, 5U);
}

TEST(History, KeepsTheLastHour) {
    History history;
    recordMinutes(history, 150);
    const History::Part part = history.since(0);
    EXPECT_EQ(part.next, 150U);
    ASSERT_EQ(part.samples.size(), History::kSamples);
    EXPECT_EQ(part.samples.front().memoryUsed, 91U);
    EXPECT_EQ(part.samples.back().memoryUsed, 150U);
}

TEST(History, ReturnsTheSamplesFromANumberOn) {
    History history;
    recordMinutes(history, 100);
    EXPECT_TRUE(history.since(100).samples.empty());
    ASSERT_EQ(history.since(98).samples.size(), 2U);
    EXPECT_EQ(history.since(98).samples[0].memoryUsed, 99U);
    EXPECT_EQ(history.since(10).samples.size(), History::kSamples) << "no longer kept";
    EXPECT_EQ(history.since(101).samples.size(), History::kSamples) << "of another run";
}

TEST(History, TakesCountersThatWentBackAsUnchanged) {
    History history;
    history.add(reading(0, 0, 9000, 9000, 9));
    history.add(reading(1, 0, 10, 10, 1));
    const Sample sample = history.since(0).samples.at(0);
    EXPECT_EQ(sample.received, 0U);
    EXPECT_EQ(sample.sent, 0U);
    EXPECT_EQ(sample.events, 0U);
}

TEST(History, BearsReadingsOfTheSameSecondAndOfHugeCounters) {
    History history;
    history.add({seconds(5), {}, {0, 0}, 0});
    history.add({seconds(5), {~std::uint64_t{0}, 0}, {~std::uint64_t{0}, 100}, 1});
    const Sample sample = history.since(0).samples.at(0);
    EXPECT_EQ(sample.memoryUsed, ~std::uint32_t{0});
    EXPECT_EQ(sample.received, ~std::uint32_t{0});
    EXPECT_EQ(sample.sent, 100U);
}

TEST(History, IsSmall) {
    std::cout << "The history takes " << sizeof(History) << " bytes.\n";
    EXPECT_LE(sizeof(History), 1200U);
}

TEST(History, IsThreadSafe) {
    History history;
    std::thread recorder([&] { recordMinutes(history, 500); });
    std::uint64_t next = 0;
    while (next < 500) {
        const History::Part part = history.since(next);
        EXPECT_LE(part.samples.size(), History::kSamples);
        next = part.next;
    }
    recorder.join();
}
