#include "status.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace {

TEST(Status, IsOneLineWithAKeyForEachFigure) {
    Status status;
    status.uptime = std::chrono::hours(25);
    status.requests = 1041;
    status.busyLoops = 1;
    status.loops = 4;
    status.sessions = 3;
    status.memory = {1832, 6120};
    EXPECT_EQ(statusLine(status), "status uptime_s=90000 requests=1041 busy=1 loops=4 sessions=3 "
                                  "private_kib=1832 resident_kib=6120");
}

TEST(Readiness, IsOneLine) {
    EXPECT_EQ(readyLine({"1.2.3", "/run/a.sock", 2, "/phone/servlet.xml"}),
              "ready version=1.2.3 socket=/run/a.sock loops=2 configuration=/phone/servlet.xml");
}

TEST(Stop, IsOneLineThatCountsNoRequestInFlightAsFinished) {
    EXPECT_EQ(stoppedLine({"SIGTERM", 75, 1041, 2}),
              "stopped reason=SIGTERM status=75 finished=1039 unfinished=2");
    EXPECT_EQ(stoppedLine({"SIGINT", 130, 0, 1}),
              "stopped reason=SIGINT status=130 finished=0 unfinished=0");
}

TEST(ProcessMemory, CountsWrittenPagesAsPrivate) {
    if (const char* emulator = std::getenv("EMULATOR"))
        GTEST_SKIP() << "/proc shows the memory of " << emulator << ", which runs this process";
    constexpr std::size_t kSize = 8 * 1024 * 1024;
    constexpr long kSizeKib = kSize / 1024;
    void* memory = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    const ProcessMemory before = processMemory();
    EXPECT_GT(before.privateKib, 0);
    EXPECT_GT(before.residentKib, before.privateKib);
    std::memset(memory, 1, kSize);
    const ProcessMemory after = processMemory();
    munmap(memory, kSize);
    const ProcessMemory atTheEnd = processMemory();
    EXPECT_GE(after.privateKib, before.privateKib + kSizeKib);
    // Sanitizers need several times as much for themselves.
    EXPECT_LT(after.privateKib, before.privateKib + 10 * kSizeKib);
    EXPECT_GE(after.residentKib, before.residentKib + kSizeKib);
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer delays freeing memory, that of the stream which reads the figures included.
    constexpr long kHeldBackKib = 64;
#else
    constexpr long kHeldBackKib = 0;
#endif
    EXPECT_LE(atTheEnd.privateKib, after.privateKib - kSizeKib + kHeldBackKib);
}

} // namespace
