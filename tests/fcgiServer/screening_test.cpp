#include "servlet_controller.h"

#include "counted_memory.h"
#include <kit/testing/recorded_log.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace kit::testing;

constexpr std::size_t kLongestResult = 511;

class Screening : public testing::Test {
protected:
    Screening() { recorded_log::clear(); }

    // Calls ReplaceStr() with `text` in a buffer that has room for long results.
    int replace(const std::string& text, const char* pattern, const char* replacement) {
        m_result.assign(4096, '#');
        m_result.replace(0, text.size() + 1, text.c_str(), text.size() + 1);
        return ReplaceStr(m_result.data(), pattern, replacement);
    }
    std::string result() const { return m_result.c_str(); }

    ServletController m_controller;
    std::string m_result;
};
using UrlScreening = Screening;
using ParameterScreening = Screening;
using Replacing = Screening;

TEST_F(Screening, AllocatesNothing) {
    const std::string url(100, 'a');
    char text[16] = "/a/x";
    const long made = counted_memory::made();
    const int results = m_controller.CheckUrlIllegalChar(url.c_str()) +
                        m_controller.CheckParaIllegalChar("login-form_2", false) +
                        m_controller.CheckParaIllegalChar("-5", true) +
                        ReplaceStr(text, "x", "servlet");
    EXPECT_EQ(counted_memory::made(), made);
    EXPECT_EQ(results, 0);
}

// URLs

TEST_F(UrlScreening, AcceptsOrdinaryUrlsSilently) {
    const char* const urls[] = {
        "",
        "/",
        "/servlet?p=status&q=load",
        "/servlet?p=x&q=%20%22%27%3D%3F%2e",
        "/servlet?p=scrip",
        "/servlet?p=scr-ipt",
        "/servlet?p=scri%70t",
        "/servlet?q=%3",
        "/servlet?q=%3 e",
        "/servlet?q=3e3c",
        "/servlet?q=%253c",
        "/servlet?q=&lt;b&gt;",
        "/servlet?q=javascrpt:\"';",
    };
    for (const char* url : urls)
        EXPECT_EQ(m_controller.CheckUrlIllegalChar(url), 0) << url;
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(UrlScreening, AcceptsNull) {
    EXPECT_EQ(m_controller.CheckUrlIllegalChar(nullptr), 0);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(UrlScreening, RefusesMarkupAndScriptAnywhereAndLogsTheUnchangedUrl) {
    const char* const urls[] = {
        "/servlet?p=x&q=%3Cb%3E",
        "/servlet?p=SCRIPTS",
        "/servlet?q=%3e",
        "/servlet?q=%3eb",
        "/servlet?q=%3cb",
        "/servlet?q=%3E",
        "/servlet?q=%3c",
        "/servlet?q=%3C",
        "/servlet?q=<",
        "/servlet?q=>",
        "/servlet?q=script",
        "/servlet?q=ScRiPt",
        "/javascript/main.js",
        "/Description",
        "<",
        ">",
        "script",
        "%3c/servlet",
        "/servlet?q=\xC3\x84%3C",
    };
    for (const char* url : urls) {
        recorded_log::clear();
        EXPECT_EQ(m_controller.CheckUrlIllegalChar(url), 1) << url;
        EXPECT_EQ(recorded_log::records(),
                  std::vector<LogRecord>{recorded_log::appLog(3, std::string("url = ") + url +
                                                                     ", include illegal char\n")});
    }
}

TEST_F(UrlScreening, LogsAUrlWithSeveralFaultsOnce) {
    EXPECT_EQ(m_controller.CheckUrlIllegalChar("/<SCRIPT>%3c%3E</script>"), 1);
    EXPECT_EQ(recorded_log::records().size(), 1u);
}

TEST_F(UrlScreening, DoesNotReadTheUrlAsAFormat) {
    const char url[] = "/%s%n%d<";
    EXPECT_EQ(m_controller.CheckUrlIllegalChar(url), 1);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{recorded_log::appLog(
                                           3, "url = /%s%n%d<, include illegal char\n")});
}

TEST_F(UrlScreening, DoesNotChangeTheUrl) {
    char url[] = "/Servlet?P=SCRIPT";
    m_controller.CheckUrlIllegalChar(url);
    EXPECT_STREQ(url, "/Servlet?P=SCRIPT");
}

TEST_F(UrlScreening, IsSafeWithEveryByte) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string url = std::string("/a") + static_cast<char>(byte) + "b";
        EXPECT_EQ(m_controller.CheckUrlIllegalChar(url.c_str()), byte == '<' || byte == '>')
            << "byte " << byte;
    }
}

TEST_F(UrlScreening, ReadsLongUrlsToTheirEnd) {
    std::string url(20000, 'a');
    EXPECT_EQ(m_controller.CheckUrlIllegalChar(url.c_str()), 0);
    url += "sCRIPt";
    EXPECT_EQ(m_controller.CheckUrlIllegalChar(url.c_str()), 1);
}

// Parameters

TEST_F(ParameterScreening, AcceptsWordsAndNumbers) {
    const struct {
        const char* value;
        int asWord; // 0: accepted
        int asNumber;
    } rows[] = {
        {nullptr, 0, 0},
        {"", 0, 0},
        {"login-form_2", 0, 1},
        {"ABCXYZabcxyz0189", 0, 1},
        {"_", 0, 1},
        {"-", 0, 0},
        {"--", 0, 1},
        {"123", 0, 0},
        {"0", 0, 0},
        {"-5", 0, 0},
        {"--5", 0, 1},
        {"5-", 0, 1},
        {"5-5", 0, 1},
        {"1a", 0, 1},
        {"a1", 0, 1},
        {"-a", 0, 1},
        {"1_0", 0, 1},
        {"12345678901234567890123456789012345678901234567890", 0, 0},
        {"+5", 1, 1},
        {"5.0", 1, 1},
        {" 5", 1, 1},
        {"5 ", 1, 1},
        {"a.b", 1, 1},
        {"a b", 1, 1},
        {".", 1, 1},
        {"../etc", 1, 1},
        {"a%41", 1, 1},
        {"a\n", 1, 1},
        {"\xC3\xA4", 1, 1},
        {"a\x80", 1, 1},
    };
    for (const auto& row : rows) {
        const char* name = row.value != nullptr ? row.value : "(null)";
        EXPECT_EQ(m_controller.CheckParaIllegalChar(row.value, false), row.asWord) << name;
        EXPECT_EQ(m_controller.CheckParaIllegalChar(row.value, true), row.asNumber) << name;
    }
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(ParameterScreening, AcceptsExactlyItsCharacters) {
    const std::string digits = "0123456789";
    const std::string wordCharacters = digits + "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                "abcdefghijklmnopqrstuvwxyz-_";
    for (int byte = 1; byte < 256; ++byte) {
        const char character = static_cast<char>(byte);
        const bool digit = digits.find(character) != std::string::npos;
        const bool word = wordCharacters.find(character) != std::string::npos;
        const std::string alone(1, character);
        const std::string later = "1" + alone;
        EXPECT_EQ(m_controller.CheckParaIllegalChar(alone.c_str(), false), !word) << byte;
        EXPECT_EQ(m_controller.CheckParaIllegalChar(later.c_str(), false), !word) << byte;
        EXPECT_EQ(m_controller.CheckParaIllegalChar(alone.c_str(), true),
                  !(digit || character == '-'))
            << byte;
        EXPECT_EQ(m_controller.CheckParaIllegalChar(later.c_str(), true), !digit) << byte;
    }
}

// Replacing

TEST_F(Replacing, ReplacesEveryOccurrence) {
    const struct {
        const char* text;
        const char* pattern;
        const char* replacement;
        const char* result;
    } rows[] = {
        {"/a/x/b/x", "x", "servlet", "/a/servlet/b/servlet"},
        {"/cgi-bin/Quillpage.tpx?page=Home.htm", "cgi-bin/Quillpage.tpx", "servlet",
         "/servlet?page=Home.htm"},
        {"abc", "abc", "d", "d"},
        {"abc", "abc", "", ""},
        {"abcabc", "abc", "", ""},
        {"xaxbx", "x", "", "ab"},
        {"aaa", "a", "bb", "bbbbbb"},
        {"aaaaa", "aa", "b", "bba"},  // places do not overlap
        {"aXaXa", "aXa", "-", "-Xa"}, // places do not overlap
        {"ab", "b", "abab", "aabab"}, // the replacement is not searched
        {"aab", "ab", "b", "ab"},     // nor what it forms with the text
        {"abc", "b", "b", "abc"},
        {"\xC3\xA4\xFF", "\xC3\xA4", "a", "a\xFF"},
        {"%s%d", "%s", "%n", "%n%d"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(replace(row.text, row.pattern, row.replacement), 0) << row.text;
        EXPECT_EQ(result(), row.result) << row.text;
    }
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(Replacing, DoesNotChangeATextWithoutThePattern) {
    const struct {
        const char* text;
        const char* pattern;
    } rows[] = {
        {"/a/x/b/x", "zz"}, {"/a/x/b/x", "X"}, {"", "x"}, {"ab", "abc"},
        {"ab", "ba"},       {"text", ""},      {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(replace(row.text, row.pattern, "servlet"), -1) << row.text << ", " << row.pattern;
        EXPECT_EQ(result(), row.text);
    }
}

TEST_F(Replacing, FailsIfAnArgumentIsNull) {
    char text[] = "x";
    EXPECT_EQ(ReplaceStr(nullptr, "x", "y"), -1);
    EXPECT_EQ(ReplaceStr(text, nullptr, "y"), -1);
    EXPECT_EQ(ReplaceStr(text, "x", nullptr), -1);
    EXPECT_EQ(ReplaceStr(nullptr, nullptr, nullptr), -1);
    EXPECT_STREQ(text, "x");
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(Replacing, WritesNothingAfterItsResult) {
    ASSERT_EQ(replace("/cgi-bin/x", "cgi-bin", "servlet"), 0);
    const std::string before = m_result;
    ASSERT_EQ(replace("/cgi-bin/x", "cgi-bin", "s"), 0);
    EXPECT_EQ(m_result.substr(0, 5), std::string("/s/x\0", 5));
    EXPECT_EQ(m_result.substr(11), std::string(4096 - 11, '#')); // the text took 11 bytes
    EXPECT_EQ(before.substr(0, 11), std::string("/servlet/x\0", 11));
    EXPECT_EQ(before.substr(11), std::string(4096 - 11, '#'));
}

TEST_F(Replacing, AcceptsResultsOfUpToFiveHundredAndElevenCharacters) {
    const std::string filling(kLongestResult - 3, 'f');
    const struct {
        std::string text;
        std::string replacement;
    } rows[] = {
        {"x" + filling, "abc"}, // the rest reaches the limit
        {filling + "x", "abc"}, // the replacement reaches it
        {"x", filling + "abc"},
        {std::string(73, 'x'), "servlet"}, // 511 = 73 x 7
        {"x" + std::string(kLongestResult, 'f'), ""},
        {std::string(1000, 'x') + "yes", ""}, // a long text may become short
    };
    for (const auto& row : rows) {
        std::string expected;
        for (const char character : row.text)
            expected += character == 'x' ? row.replacement : std::string(1, character);
        EXPECT_EQ(replace(row.text, "x", row.replacement.c_str()), 0) << row.text;
        EXPECT_EQ(result(), expected);
    }
}

TEST_F(Replacing, RefusesLongerResultsAndDoesNotChangeTheText) {
    const std::string limit(kLongestResult, 'f');
    const struct {
        std::string text;
        std::string replacement;
    } rows[] = {
        {"x" + limit.substr(1), "ab"},
        {limit.substr(1) + "x", "ab"},
        {limit + "x", "a"},
        {limit + "fx", ""},
        {"x" + limit + "f", ""},
        {"x", limit + "f"},
        {"x", std::string(100000, 'f')},
        {"xx", limit}, // one would fit
        {std::string(74, 'x'), "servlet"},
        {std::string(2000, 'f') + "x" + std::string(1000, 'f'), "y"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(replace(row.text, "x", row.replacement.c_str()), -1) << row.text;
        EXPECT_EQ(m_result, row.text + '\0' + std::string(4096 - row.text.size() - 1, '#'));
    }
}

TEST_F(Replacing, FitsATargetOfExactlyTheResultsSize) {
    std::vector<char> target = {'a', 'x', 'b', '\0', '?'};
    EXPECT_EQ(ReplaceStr(target.data(), "x", "yz"), 0);
    EXPECT_EQ(target, (std::vector<char>{'a', 'y', 'z', 'b', '\0'}));
}

} // namespace
