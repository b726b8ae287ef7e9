#include "request_loops.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(RequestLoops, ServeOnTheRequestedNumberOfThreads) {
    std::atomic<int> started{0};
    std::promise<void> end;
    auto ended = end.get_future().share();
    RequestLoops loops(
        [&] {
            ++started;
            ended.wait();
        },
        4);
    EXPECT_EQ(loops.count(), 4);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (started < 4 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(started, 4);
    loops.stop();
    EXPECT_FALSE(loops.waitForEnd(0ms)) << "they still serve";
    end.set_value();
    EXPECT_TRUE(loops.waitForEnd(10s));
}

std::size_t ownStackBytes() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    std::size_t bytes = 0;
    pthread_attr_getstacksize(&attributes, &bytes);
    pthread_attr_destroy(&attributes);
    return bytes;
}

TEST(RequestLoops, HaveStacksOfTheDocumentedSize) {
    std::atomic<std::size_t> bytes{0};
    RequestLoops loops([&] { bytes = ownStackBytes(); }, 1);
    loops.stop();
    ASSERT_TRUE(loops.waitForEnd(10s));
#ifdef __SANITIZE_THREAD__
    // The sanitizer adds what it needs; the system's default is 8 MiB.
    EXPECT_GE(bytes, RequestLoops::kStackBytes);
    EXPECT_LT(bytes, RequestLoops::kStackBytes + (1 << 20));
#else
    EXPECT_EQ(bytes, RequestLoops::kStackBytes);
#endif
}

TEST(RequestLoops, AcceptAgainOneSecondAfterAFailure) {
    std::atomic<int> calls{0};
    const auto begin = std::chrono::steady_clock::now();
    RequestLoops loops([&] { ++calls; }, 1);
    while (calls < 2 && std::chrono::steady_clock::now() < begin + 10s)
        std::this_thread::sleep_for(1ms);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(calls, 2);
    EXPECT_GE(taken, 1s);
    loops.stop();
    EXPECT_TRUE(loops.waitForEnd(10s));
}

TEST(RequestLoops, EndWithoutThatPauseWhenStopped) {
    std::atomic<int> calls{0};
    RequestLoops loops([&] { ++calls; }, 2);
    while (calls < 2)
        std::this_thread::sleep_for(1ms);
    const auto begin = std::chrono::steady_clock::now();
    loops.stop();
    EXPECT_TRUE(loops.waitForEnd(10s));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 900ms);
}

TEST(RequestLoops, ContinueReadingWhenInterrupted) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::promise<void> begun;
    std::promise<ssize_t> result;
    RequestLoops loops(
        [&] {
            begun.set_value();
            char byte = 0;
            result.set_value(read(ends[0], &byte, 1));
        },
        1);
    begun.get_future().wait();
    loops.stop();
    std::this_thread::sleep_for(50ms); // so that it waits in read(2)
    loops.interrupt();
    EXPECT_FALSE(loops.waitForEnd(50ms));
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(result.get_future().get(), 1);
    EXPECT_TRUE(loops.waitForEnd(10s));
    close(ends[0]);
    close(ends[1]);
}

} // namespace
