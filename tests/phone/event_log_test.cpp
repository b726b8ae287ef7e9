#include "event_log.h"

#include <gtest/gtest.h>

using phone::EventLog;

TEST(EventLog, ShowsTheNewestEventFirst) {
    EventLog log;
    log.add("key", "OK", "192.0.2.7", 100);
    log.add("number", "123", "192.0.2.8", 200);

    const auto events = log.recent();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name, "number");
    EXPECT_EQ(events[0].value, "123");
    EXPECT_EQ(events[0].remoteAddress, "192.0.2.8");
    EXPECT_EQ(events[0].time, 200);
    EXPECT_EQ(events[1].name, "key");
}

TEST(EventLog, DropsTheOldestWhenItIsFull) {
    EventLog log;
    for (std::size_t i = 0; i <= EventLog::kMaxEvents; ++i) {
        log.add("number", std::to_string(i), "192.0.2.7", 100);
    }
    const auto events = log.recent();
    ASSERT_EQ(events.size(), EventLog::kMaxEvents);
    EXPECT_EQ(events.front().value, std::to_string(EventLog::kMaxEvents));
    EXPECT_EQ(events.back().value, "1");
}

TEST(EventLog, CutsLongTextsBetweenTwoCharacters) {
    const std::string fits(EventLog::kMaxText, 'x');
    const std::string head(EventLog::kMaxText - 1, 'x');
    const struct {
        std::string text;
        std::string kept;
    } texts[] = {
        {"", ""},
        {fits, fits},
        {fits + "y", fits},
        {head + "\xC3\xA4", head},                         // two bytes, one of which would fit
        {head + "\xE2\x82\xAC", head},                     // three bytes
        {fits + "\xC3\xA4", fits},                         // cut right before it
        {std::string(EventLog::kMaxText + 1, '\x80'), ""}, // nothing that begins a character
    };
    for (const auto& text : texts) {
        EventLog log;
        log.add("number", text.text, text.text, 100);
        EXPECT_EQ(log.recent()[0].value, text.kept);
        EXPECT_EQ(log.recent()[0].remoteAddress, text.kept);
    }
}
