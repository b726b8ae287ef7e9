#include "model/desk_phone.h"

#include <atomic>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

using namespace phone;

namespace {

// Presses keys and carries out commands (prefixed by a colon), in this order.
void play(DeskPhone& phone, const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
        if (word.front() == ':') {
            phone.command(word.substr(1));
        } else {
            EXPECT_TRUE(phone.press(word)) << word;
        }
    }
}

// Returns everything visible except the last key.
using Seen = std::tuple<Screen, std::string, Call, int, std::array<Lamp, PhoneView::kLines>, Lamp,
                        bool, bool, bool, bool, int>;

Seen seen(const DeskPhone& phone) {
    const PhoneView view = phone.view();
    return {view.screen,    view.digits,       view.call,    view.line,
            view.lineLamps, view.messageLamp,  view.speaker, view.mute,
            view.headset,   view.doNotDisturb, view.volume};
}

// Returns the digits where the display shows some, otherwise what it shows instead.
std::string shown(const PhoneView& view) {
    switch (view.screen) {
    case Screen::ready:
    case Screen::doNotDisturb:
    case Screen::menu:
        return view.digits + nameOf(view.screen);
    default:
        return view.digits;
    }
}

PhoneView after(const std::string& script) {
    DeskPhone phone;
    play(phone, script);
    return phone.view();
}

} // namespace

TEST(DeskPhone, IsIdleAtFirst) {
    const PhoneView view = DeskPhone().view();
    EXPECT_EQ(view.line, 1);
    EXPECT_EQ(view.screen, Screen::ready);
    EXPECT_EQ(view.digits, "");
    EXPECT_EQ(view.call, Call::idle);
    for (Lamp lamp : view.lineLamps) {
        EXPECT_EQ(lamp, Lamp::off);
    }
}

TEST(DeskPhone, FollowsTheCallStates) {
    const struct {
        const char* script;
        Call call;
        const char* display;
    } cases[] = {
        {"5", Call::dialing, "5"},
        {"L2", Call::dialing, ""},
        {"SPEAKER", Call::dialing, ""},
        {"HEADSET", Call::dialing, ""},
        {"STAR 2 1 POUND", Call::dialing, "*21#"},
        {"1 2 CANCEL", Call::dialing, "1"},
        {"1 CANCEL CANCEL", Call::idle, "ready"},
        {"1 2 OK", Call::talking, "12"},
        {"STAR OK", Call::dialing, "*"},
        {"L1 OK", Call::dialing, ""},
        {"OK", Call::idle, "ready"},
        {"1 OK 7 POUND", Call::talking, "17#"},
        {"1 OK HOLD", Call::held, "1"},
        {"1 OK HOLD 5", Call::held, "1"},
        {"1 OK HOLD HOLD", Call::talking, "1"},
        {"1 OK HOLD OK", Call::talking, "1"},
        {"1 OK L1", Call::held, "1"},
        {"1 OK L1 L1", Call::talking, "1"},
        {"1 OK L2", Call::talking, "1"},
        {"1 OK HOLD CANCEL", Call::idle, "ready"},
        {"1 OK CANCEL", Call::idle, "ready"},
        {"1 OK SPEAKER", Call::idle, "ready"},
        {"1 OK HEADSET", Call::talking, "1"},
        {"1 OK HEADSET HEADSET", Call::idle, "ready"},
        {"HOLD", Call::idle, "ready"},
        {":ring", Call::ringing, "1002"},
        {":ring 5", Call::ringing, "1002"},
        {":ring OK", Call::talking, "1002"},
        {":ring SPEAKER", Call::talking, "1002"},
        {":ring HEADSET", Call::talking, "1002"},
        {":ring L1", Call::talking, "1002"},
        {":ring L2", Call::ringing, "1002"},
        {":ring :answer", Call::talking, "1002"},
        {":ring CANCEL", Call::idle, "ready"},
        {":ring :hangup", Call::idle, "ready"},
        {":ring :answer :hold", Call::held, "1002"},
        {":ring :answer :hold :hold", Call::talking, "1002"},
        {":dnd_on", Call::idle, "doNotDisturb"},
        {":dnd_on :ring", Call::idle, "doNotDisturb"},
        {":dnd_on :dnd_off", Call::idle, "ready"},
        {"MENU", Call::idle, "menu"},
        {"MENU MENU", Call::idle, "ready"},
        {"MENU CANCEL", Call::idle, "ready"},
        {"MENU 5", Call::dialing, "5"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.script);
        const PhoneView view = after(test.script);
        EXPECT_STREQ(nameOf(view.call), nameOf(test.call));
        EXPECT_EQ(shown(view), test.display);
        const std::string screen = nameOf(view.screen);
        EXPECT_TRUE(screen == nameOf(view.call) || view.call == Call::idle) << screen;
    }
}

TEST(DeskPhone, ShowsTheLineInUse) {
    const struct {
        const char* script;
        std::size_t line;
        Lamp lamp;
    } cases[] = {
        {"L3", 3, Lamp::on},
        {"L3 1 OK", 3, Lamp::on},
        {"L6 1 OK HOLD", 6, Lamp::blinking},
        {":ring", 1, Lamp::blinking},
        {"DOWN", 2, Lamp::off},
        {"UP", 6, Lamp::off},
        {"LEFT RIGHT", 1, Lamp::off},
        {"DOWN 5", 2, Lamp::on},
        {"L3 L4", 4, Lamp::on},
        {"L2 DOWN", 2, Lamp::on},
        {"DOWN :ring", 2, Lamp::blinking},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.script);
        const PhoneView view = after(test.script);
        EXPECT_EQ(view.line, static_cast<int>(test.line));
        for (std::size_t line = 1; line <= PhoneView::kLines; ++line) {
            EXPECT_STREQ(nameOf(view.lineLamps[line - 1]),
                         nameOf(line == test.line ? test.lamp : Lamp::off));
        }
    }
}

TEST(DeskPhone, ShowsTheAudioPath) {
    EXPECT_TRUE(after("1").speaker);
    EXPECT_TRUE(after("HEADSET 1 OK").headset);
    EXPECT_FALSE(after("HEADSET 1 OK").speaker);
    EXPECT_FALSE(after("SPEAKER HEADSET").speaker);
    EXPECT_FALSE(after(":ring").speaker);
    EXPECT_FALSE(after("1 OK CANCEL").speaker);
    EXPECT_TRUE(after("1 OK MUTE").mute);
    EXPECT_FALSE(after("1 OK MUTE MUTE").mute);
    EXPECT_FALSE(after("1 OK MUTE CANCEL").mute);
    EXPECT_FALSE(after("MUTE").mute);
    EXPECT_EQ(after(":message_on").messageLamp, Lamp::blinking);
    EXPECT_EQ(after(":message_on :message_off").messageLamp, Lamp::off);
}

TEST(DeskPhone, KeepsTheVolumeWithinItsLimits) {
    EXPECT_EQ(after("VOLUME_UP").volume, 6);
    EXPECT_EQ(after("VOLUME_DOWN").volume, 4);
    DeskPhone phone;
    for (int i = 0; i < 20; ++i) {
        phone.press("VOLUME_UP");
    }
    EXPECT_EQ(phone.view().volume, DeskPhone::kMaxVolume);
    for (int i = 0; i < 20; ++i) {
        phone.press("VOLUME_DOWN");
    }
    EXPECT_EQ(phone.view().volume, 0);
}

TEST(DeskPhone, DialsNumbers) {
    DeskPhone phone;
    for (const char* bad : {"", "abc", "*#", "1\n2", "123456789012345678901234567890123"}) {
        EXPECT_FALSE(phone.dial(bad)) << bad;
    }
    EXPECT_EQ(seen(phone), seen(DeskPhone()));
    EXPECT_TRUE(phone.dial("+49 30 23125 000"));
    EXPECT_EQ(phone.view().call, Call::talking);
    EXPECT_EQ(phone.view().digits, "+49 30 23125 000");
    EXPECT_FALSE(phone.dial("1")) << "in a call";
    EXPECT_EQ(phone.view().digits, "+49 30 23125 000");
}

TEST(DeskPhone, LimitsTheNumberOfDigits) {
    DeskPhone phone;
    for (int i = 0; i < 100; ++i) {
        phone.press("5");
    }
    EXPECT_EQ(phone.view().digits, std::string(DeskPhone::kMaxDigits, '5'));
}

TEST(DeskPhone, RejectsUnknownKeysNumbersAndCommands) {
    DeskPhone phone;
    for (const char* key : {"", "ok", "L0", "L7", "L", "L1x", "10", "A", "STARS", "OK "}) {
        EXPECT_FALSE(phone.press(key)) << key;
    }
    for (const char* command : {"", "RING", "explode", "answer", "hangup", "hold"}) {
        EXPECT_FALSE(phone.command(command)) << command;
    }
    EXPECT_EQ(seen(phone), seen(DeskPhone()));
    phone.command("ring");
    const Seen ringing = seen(phone);
    EXPECT_FALSE(phone.command("ring")) << "busy";
    EXPECT_EQ(seen(phone), ringing);
}

TEST(DeskPhone, IgnoresKeysWithoutAFunction) {
    DeskPhone phone;
    play(phone, "OK CANCEL HOLD MUTE");
    EXPECT_EQ(seen(phone), seen(DeskPhone()));
    play(phone, "5 VOLUME_UP");
    EXPECT_NE(seen(phone), seen(DeskPhone()));
}

TEST(DeskPhone, RemembersTheLastKeyPressed) {
    DeskPhone phone;
    EXPECT_EQ(phone.view().key, "");
    EXPECT_EQ(phone.view().presses, 0U);
    phone.press("5");
    phone.press("HOLD"); // has no effect while dialing
    EXPECT_EQ(phone.view().key, "HOLD");
    EXPECT_EQ(phone.view().presses, 2U);
    phone.press("NO_KEY");
    phone.dial("1002");
    EXPECT_EQ(phone.view().key, "HOLD");
    EXPECT_EQ(phone.view().presses, 2U);
}

TEST(DeskPhone, IsThreadSafe) {
    DeskPhone phone;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&phone, &wrong] {
            for (int n = 0; n < 500; ++n) {
                for (const char* key : {"1", "OK", "HOLD", "L2", "CANCEL", "SPEAKER", "UP"}) {
                    phone.press(key);
                    const PhoneView view = phone.view();
                    const bool lit =
                        view.lineLamps[static_cast<std::size_t>(view.line) - 1] != Lamp::off;
                    wrong += lit != (view.call != Call::idle);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}
