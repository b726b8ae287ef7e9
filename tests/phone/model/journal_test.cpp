#include "model/journal.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

using namespace phone;
namespace recorded_log = kit::testing::recorded_log;

TEST(EscapedLine, ShowsWhatCouldDeceive) {
    const struct {
        std::string text;
        const char* shown;
    } cases[] = {
        {"", ""},
        {"J\xC3\xBCrgen 中文", "J\xC3\xBCrgen 中文"},
        {"one\ntwo\r\t", "one\\x0atwo\\x0d\\x09"},
        {"\x1b[31m\x7f", "\\x1b[31m\\x7f"},
        {"C:\\x0a", "C:\\\\x0a"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\xC2\x85\xC2\xA0", "\\xc2\\x85\xC2\xA0"},
        {"\xE2\x80\xAE"
         "gpj.exe",
         "\\xe2\\x80\\xaegpj.exe"},
        {"\xE2\x81\xA6\xE2\x80\x8F", "\\xe2\\x81\\xa6\\xe2\\x80\\x8f"},
        {"\xE2\x80\x93", "\xE2\x80\x93"},
        {"\xFF\xC3(\xE2\x80", "\\xff\\xc3(\\xe2\\x80"},
    };
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(escapedLine(text), shown);
    }
}

TEST(Journal, KeepsWhatItWritesToTheLog) {
    recorded_log::clear();
    Journal& journal = *Journal::getInstance();
    journal.info("first %d", 1);
    journal.warn("second %s", "100% \n");
    journal.error("third");
    const auto entries = journal.recent(Severity::info);
    ASSERT_GE(entries.size(), 3U);
    EXPECT_EQ(entries[0].text, "third");
    EXPECT_EQ(entries[0].severity, Severity::error);
    EXPECT_EQ(entries[1].text, "second 100% \\x0a");
    EXPECT_EQ(entries[2].text, "first 1");
    EXPECT_EQ(journal.recent(Severity::error)[0].text, "third");
    EXPECT_EQ(journal.recent(Severity::warning)[1].text, "second 100% \\x0a");
    EXPECT_EQ(journal.recent(Severity::info, 2).size(), 2U);
    EXPECT_EQ(recorded_log::records(),
              (std::vector{recorded_log::webDebug("info", "first 1"),
                           recorded_log::webDebug("warn", "second 100% \n"),
                           recorded_log::webDebug("error", "third")}));
}

TEST(Journal, IsBounded) {
    Journal& journal = *Journal::getInstance();
    for (std::size_t i = 0; i < Journal::kMaxEntries + 5; ++i) {
        journal.info("%s", std::string(5000, 'x').c_str());
    }
    const auto entries = journal.recent(Severity::info);
    EXPECT_EQ(entries.size(), Journal::kMaxEntries);
    EXPECT_EQ(entries[0].text, std::string(Journal::kMaxText, 'x'));
}
