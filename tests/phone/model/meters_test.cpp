#include "model/meters.h"

#include <gtest/gtest.h>

using namespace phone;
TEST(MemoryMeter, ReadsMeminfo) {
    const Memory memory = readMemory("MemTotal:         62340 kB\n"
                                     "MemFree:          10000 kB\n"
                                     "MemAvailable:     20480 kB\n"
                                     "SwapTotal:            0 kB\n");
    EXPECT_EQ(memory.total, 62340u * 1024);
    EXPECT_EQ(memory.available, 20480u * 1024);
}

TEST(MemoryMeter, ReturnsZeroForWhatItCannotRead) {
    for (const char* text :
         {"", "\n", "MemTotal:", "MemTotal: x kB", "XMemTotal: 5 kB", "MemTotal"}) {
        EXPECT_EQ(readMemory(text).total, 0u) << text;
        EXPECT_EQ(readMemory(text).available, 0u) << text;
    }
}

TEST(MemoryMeter, ReadsThisMachine) {
    EXPECT_GT(memory().available, 0u);
    EXPECT_GE(memory().total, memory().available);
}

TEST(TrafficMeter, AddsUpAllInterfacesExceptLoopback) {
    const Traffic traffic = readTraffic(
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs\n"
        "    lo: 1000000    1    0    0    0     0          0         0  1000000    1    0\n"
        "  eth0:    5000   10    1    2    3     4          5         6      700   20    0\n"
        " wlan0:6000000000 10    0    0    0     0          0         0       30   20    0\n");
    EXPECT_EQ(traffic.received, 6000005000u);
    EXPECT_EQ(traffic.sent, 730u);
}

TEST(TrafficMeter, ReturnsZeroForWhatItCannotRead) {
    for (const char* text : {"", "eth0", "eth0:", "eth0: x y z"}) {
        EXPECT_EQ(readTraffic(text).received, 0u) << text;
        EXPECT_EQ(readTraffic(text).sent, 0u) << text;
    }
}

TEST(NetworkInterfaces, AreListedOnceEach) {
    const auto interfaces = networkInterfaces();
    EXPECT_LE(interfaces.size(), kMaxInterfaces);
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        EXPECT_NE(interfaces[i].name, "lo");
        EXPECT_NE(interfaces[i].address + interfaces[i].hardwareAddress, "");
        for (std::size_t j = 0; j < i; ++j) {
            EXPECT_NE(interfaces[i].name, interfaces[j].name);
        }
    }
}
