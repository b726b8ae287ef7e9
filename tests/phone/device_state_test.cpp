#include "device_state.h"

#include <gtest/gtest.h>

using phone::DeviceState;
using phone::durationText;

TEST(DeviceState, KnowsAUserByNameAndPassword) {
    const DeviceState device;
    const phone::WebUser* user = device.authenticate("admin", "admin");
    ASSERT_NE(user, nullptr);
    EXPECT_STREQ(user->name, "admin");
}

TEST(DeviceState, KnowsNobodyByAnythingElse) {
    const DeviceState device;
    const char* const attempts[][2] = {
        {"", ""},           {"admin", ""},       {"", "admin"},
        {"admin", "admi"},  {"admin", "adminn"}, {"admin", "Admin"},
        {"Admin", "admin"}, {"admim", "admin"},  {"adminn", "admin"},
        {"admi", "admin"},
    };
    for (const auto& attempt : attempts) {
        EXPECT_EQ(device.authenticate(attempt[0], attempt[1]), nullptr)
            << attempt[0] << " / " << attempt[1];
    }
    EXPECT_EQ(device.authenticate("admin", std::string_view("admin\0", 6)), nullptr);
}

TEST(DeviceState, NamesEachNetworkInterfaceOnce) {
    const auto interfaces = DeviceState().networkInterfaces();
    EXPECT_LE(interfaces.size(), DeviceState::kMaxInterfaces);
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        EXPECT_NE(interfaces[i].name, "lo");
        EXPECT_NE(interfaces[i].address + interfaces[i].hardwareAddress, "");
        for (std::size_t j = 0; j < i; ++j) {
            EXPECT_NE(interfaces[i].name, interfaces[j].name);
        }
    }
}

TEST(Durations, AreShownInDaysAndTimeOfDay) {
    EXPECT_EQ(durationText(0), "0 d 00:00:00");
    EXPECT_EQ(durationText(59), "0 d 00:00:59");
    EXPECT_EQ(durationText(3600 + 2 * 60 + 3), "0 d 01:02:03");
    EXPECT_EQ(durationText(2 * 86400 - 1), "1 d 23:59:59");
}
