#include "log_record.h"
#include "log_settings.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <limits>
#include <string>

namespace {

using namespace device_log;

__attribute__((format(printf, 1, 2))) std::string text(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const EscapedText escaped = formatText(format, arguments);
    va_end(arguments);
    return std::string(escaped.view());
}

std::string escaped(const std::string& value) {
    return text("%s", value.c_str());
}

constexpr app_log_request kNoRequest{0, 0};

std::string line(int level, std::string_view module, const char* user, const char* message,
                 app_log_request request = kNoRequest) {
    EscapedText body;
    body.append(message);
    constexpr std::time_t kTime = 1795230000; // 2026-11-21, 03:00:00 UTC
    return std::string(Record(kTime, level, module, request, escapeUser(user), body).line());
}

} // namespace

TEST(LogLine, HasTimeLevelModuleUserAndText) {
    EXPECT_EQ(line(4, "65", nullptr, "text"), "2026-11-21T03:00:00Z warning [65]: text\n");
    EXPECT_EQ(line(6, "web", "admin", "text"),
              "2026-11-21T03:00:00Z information [web] user=admin: text\n");
    EXPECT_EQ(line(3, "65", "", ""), "2026-11-21T03:00:00Z error [65]: \n");
}

TEST(LogLine, NamesTheRequestAndItsThread) {
    EXPECT_EQ(line(4, "65", nullptr, "text", {2, 1041}),
              "2026-11-21T03:00:00Z warning [65] thread=2 request=1041: text\n");
    EXPECT_EQ(line(4, "web", "admin", "text", {1, 1}),
              "2026-11-21T03:00:00Z warning [web] thread=1 request=1 user=admin: text\n");
    EXPECT_EQ(line(4, "65", nullptr, "text", {2, 0}), "2026-11-21T03:00:00Z warning [65]: text\n");
}

TEST(LogLine, NamesEveryLevel) {
    const char* names[] = {"emergency", "alert",  "critical",    "error",
                           "warning",   "notice", "information", "debug"};
    for (int level = 0; level < 8; ++level)
        EXPECT_EQ(line(level, "1", nullptr, "x"),
                  std::string("2026-11-21T03:00:00Z ") + names[level] + " [1]: x\n");
}

TEST(LogLine, OmitsTimeAndLevelForTheSystemLog) {
    EscapedText body;
    body.append("text");
    EXPECT_EQ(Record(0, 4, "65", {3, 7}, escapeUser("admin"), body).message(),
              "[65] thread=3 request=7 user=admin: text");
}

TEST(LogLine, FitsIntoOneWriteToAPipe) {
    const std::string user(1000, '\n');
    EscapedText body;
    body.append(text("%05000d", 0));
    const app_log_request request{std::numeric_limits<int>::max(),
                                  std::numeric_limits<unsigned long>::max()};
    const Record record(0, 0, "-2147483648", request, escapeUser(user.c_str()), body);
    EXPECT_LT(record.line().size(), 4096u);
    EXPECT_EQ(record.line().back(), '\n');
    EXPECT_EQ(record.message().substr(record.message().size() - 5), "00...");
}

TEST(LogText, IsFormattedWithoutOneTrailingNewline) {
    EXPECT_EQ(text("n = %d, s = %s", 5, "x"), "n = 5, s = x");
    EXPECT_EQ(text("line%c", '\n'), "line");
    EXPECT_EQ(text("line%c%c", '\n', '\n'), "line\\n");
    EXPECT_EQ(text("%c", '\n'), "");
    EXPECT_EQ(text("%s", ""), "");
}

TEST(LogText, IsEscapedToOneUnambiguousLine) {
    EXPECT_EQ(escaped("a\nb"), "a\\nb");
    EXPECT_EQ(escaped("a\r\nb"), "a\\r\\nb");
    EXPECT_EQ(escaped("a\tb"), "a\\tb");
    EXPECT_EQ(escaped("a\\nb"), "a\\\\nb");
    EXPECT_EQ(escaped("\x1b[2J\x07\x7f"), "\\x1B[2J\\x07\\x7F");
    EXPECT_EQ(text("a%cb", '\0'), "a\\x00b");
    EXPECT_EQ(escaped("50% \"quoted\" 'text'"), "50% \"quoted\" 'text'");
}

// RFC 3629, section 4.
TEST(LogText, KeepsWellFormedUtf8AndEscapesOtherBytes) {
    const char* kept[] = {"gr\xc3\xbc\xc3\x9f", "\xc2\xa0",         "\xdf\xbf",
                          "\xe0\xa0\x80",       "\xe2\x82\xac",     "\xed\x9f\xbf",
                          "\xef\xbf\xbd",       "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"};
    for (const char* each : kept)
        EXPECT_EQ(escaped(each), each);
    const std::pair<const char*, const char*> refused[] = {
        {"\x80", "\\x80"},
        {"\xff", "\\xFF"},
        {"\xc3", "\\xC3"},
        {"\xc3(", "\\xC3("},
        {"\xc0\x8a", "\\xC0\\x8A"},                   // overlong line feed
        {"\xe0\x80\x8a", "\\xE0\\x80\\x8A"},          // the same, longer
        {"\xf0\x80\x80\x8a", "\\xF0\\x80\\x80\\x8A"}, // and longer
        {"\xe2\x82", "\\xE2\\x82"},
        {"\xed\xa0\x80", "\\xED\\xA0\\x80"},          // surrogate
        {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"}, // above U+10FFFF
        {"\xf5\x80\x80\x80", "\\xF5\\x80\\x80\\x80"},
        {"\xc2\x85", "\\xC2\\x85"}, // U+0085, next line
        {"\xc2\x9b[2J", "\\xC2\\x9B[2J"},
    };
    for (const auto& [bytes, expected] : refused)
        EXPECT_EQ(escaped(bytes), expected);
}

TEST(LogText, IsCutWhenItIsTooLong) {
    const std::string longest(kMaxText, 'x');
    EXPECT_EQ(escaped(longest), longest);
    EXPECT_EQ(escaped(longest + "\n"), longest);
    EXPECT_EQ(escaped(longest + "y"), longest + "...");
    EXPECT_EQ(escaped(longest + longest), longest + "...");
    EXPECT_EQ(escaped(longest + "\n\n"), longest + "...");
}

TEST(LogText, IsNeverCutInsideACharacterOrAnEscape) {
    const std::string almost(kMaxText - 1, 'x');
    EXPECT_EQ(escaped(almost + "\n."), almost + "...");
    EXPECT_EQ(escaped(almost + "\xc3\xbc"), almost + "...");
    EXPECT_EQ(escaped(almost + "\xf0\x9f\x93\x9e" + almost), almost + "...");
    EXPECT_EQ(escaped(almost.substr(3) + "\xf0\x9f\x93\x9e" + almost),
              almost.substr(3) + "\xf0\x9f\x93\x9e...");
    EXPECT_EQ(escaped(std::string(kMaxText, '\n')).size(), kMaxText + 3);
}

TEST(LogUser, CannotImitateTheTextBehindIt) {
    EXPECT_EQ(line(4, "65", "admin: x", "text"),
              "2026-11-21T03:00:00Z warning [65] user=admin\\x3A\\x20x: text\n");
    EXPECT_EQ(line(4, "65", "a\nb", "text"),
              "2026-11-21T03:00:00Z warning [65] user=a\\nb: text\n");
}

TEST(LogUser, IsCutWhenTheNameIsTooLong) {
    const std::string longest(kMaxUser, 'u');
    EXPECT_EQ(escapeUser(longest.c_str()).view(), longest);
    EXPECT_EQ(escapeUser((longest + "v").c_str()).view(), longest + "...");
    for (std::size_t size = kMaxUser - 4; size <= kMaxUser; ++size) {
        const std::string start = longest.substr(0, size);
        const std::string rest = size == kMaxUser - 4 ? "\xf0\x9f\x93\x9e..." : "...";
        EXPECT_EQ(escapeUser((start + "\xf0\x9f\x93\x9e" + longest).c_str()).view(), start + rest);
    }
}

TEST(LogSettings, ChooseTheOutputs) {
    struct {
        const char* outputs;
        bool toSyslog;
        bool toStderr;
    } const table[] = {{"syslog", true, false}, {"stderr", false, true}, {"both", true, true},
                       {nullptr, true, true},   {"", true, true},        {"Syslog", true, true},
                       {"none", true, true}};
    for (const auto& [outputs, toSyslog, toStderr] : table) {
        const auto settings = LogSettings::parse(outputs, nullptr);
        EXPECT_EQ(settings.toSyslog, toSyslog) << (outputs ? outputs : "null");
        EXPECT_EQ(settings.toStderr, toStderr) << (outputs ? outputs : "null");
    }
}

TEST(LogSettings, ChooseTheThreshold) {
    struct {
        const char* level;
        int threshold;
        bool refused;
    } const table[] = {{"0", 0, false}, {"3", 3, false}, {"7", 7, false},   {nullptr, 6, false},
                       {"", 6, false},  {"8", 6, true},  {"-1", 6, true},   {"10", 6, true},
                       {" 3", 6, true}, {"3 ", 6, true}, {"debug", 6, true}};
    for (const auto& [level, threshold, refused] : table) {
        const auto settings = LogSettings::parse(nullptr, level);
        EXPECT_EQ(settings.threshold, threshold) << (level ? level : "null");
        EXPECT_EQ(settings.thresholdRefused, refused) << (level ? level : "null");
    }
}
