#include "served.h"

#include "kit/conditional.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

using namespace kit::testing;
using kit::internal::Condition;

namespace {

constexpr std::time_t kSunday = 784111777; // Sun, 06 Nov 1994 08:49:37 GMT
constexpr char kSundayText[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr char kDayBefore[] = "Sat, 05 Nov 1994 08:49:37 GMT";
constexpr char kDayAfter[] = "Mon, 07 Nov 1994 08:49:37 GMT";

using Headers = std::vector<std::pair<std::string, std::string>>;

Request with(const Headers& headers, const std::string& method = "GET") {
    Request request(method, "/servlet?p=x");
    for (const auto& [name, value] : headers) {
        request = request.header(name, value);
    }
    return request;
}

// Returns the result of the conditions for the version "a", changed on that Sunday.
Condition conditionOf(const Headers& headers, const std::string& entityTag = "\"a\"") {
    Condition condition{};
    answerTo(with(headers), [&](kit::Request& request, kit::Response&) {
        condition = kit::internal::conditionOf(request, {entityTag, kSunday});
    });
    return condition;
}

// Returns the part of a file of 100 bytes as "begin+size", or "all".
std::string rangeOf(const Headers& headers, const std::string& method = "GET",
                    const std::string& entityTag = "\"a\"") {
    std::string text = "all";
    answerTo(with(headers, method), [&](kit::Request& request, kit::Response&) {
        if (const auto range = kit::internal::rangeOf(request, {entityTag}, 100)) {
            text = std::to_string(range->begin) + "+" + std::to_string(range->size);
        }
    });
    return text;
}

} // namespace

TEST(HttpDate, IsWrittenAsHeadersContainIt) {
    EXPECT_EQ(kit::httpDate(kSunday), kSundayText);
    EXPECT_EQ(kit::httpDate(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(kit::httpDate(951782399), "Mon, 28 Feb 2000 23:59:59 GMT");
}

TEST(HttpDate, HasAYearOfFourDigits) {
    if (sizeof(std::time_t) < sizeof(std::int64_t)) {
        GTEST_SKIP() << "std::time_t ends in 2038";
    }
    const auto written = [](std::int64_t time) {
        return kit::httpDate(static_cast<std::time_t>(time));
    };
    EXPECT_EQ(written(-30610224000), "Wed, 01 Jan 1000 00:00:00 GMT");
    EXPECT_EQ(written(-30610224001), "");
    EXPECT_EQ(written(253402300799), "Fri, 31 Dec 9999 23:59:59 GMT");
    EXPECT_EQ(written(253402300800), "");
    EXPECT_EQ(written(INT64_MAX), "") << "a year that no int holds";
    EXPECT_EQ(kit::readHttpDate("Tuesday, 31-Dec-69 23:59:59 GMT"), std::time_t{3155759999});
}

// RFC 9110, section 5.6.7.
TEST(HttpDate, IsReadInItsThreeForms) {
    for (const char* text : {kSundayText, "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994", "Sun Nov 06 08:49:37 1994"}) {
        EXPECT_EQ(kit::readHttpDate(text), kSunday) << text;
    }
    EXPECT_EQ(kit::readHttpDate("Tuesday, 19-Jan-38 03:14:07 GMT"), 2147483647);
    EXPECT_EQ(kit::readHttpDate("Thursday, 01-Jan-70 00:00:00 GMT"), 0);
    EXPECT_EQ(kit::readHttpDate("Saturday, 01-Jan-00 00:00:00 GMT"), 946684800);
    EXPECT_EQ(kit::readHttpDate("Sun, 31 Dec 2000 23:59:59 GMT"), 978307199);
    EXPECT_EQ(kit::readHttpDate("Tue, 29 Feb 2000 00:00:00 GMT"), 951782400);
    EXPECT_EQ(kit::readHttpDate("Tue Feb 29 00:00:00 2000"), 951782400);
    EXPECT_EQ(kit::readHttpDate("Wed, 31 Dec 1969 23:59:59 GMT"), -1);
    EXPECT_EQ(kit::readHttpDate("Wednesday, 01-Jan-97 00:00:00 GMT"), 852076800);
}

TEST(HttpDate, IsNoOtherText) {
    for (const char* text : {
             "",
             "Sunday",
             "784111777",
             "Sun, 06 Nov 1994 08:49:37",
             "Sun, 06 Nov 1994 08:49:37 GMT ",
             "Sun, 6 Nov 1994 08:49:37 GMT",
             "Sun, 31 Feb 1994 08:49:37 GMT",
             "Sun, 00 Nov 1994 08:49:37 GMT",
             "Sun, 06 nov 1994 08:49:37 GMT",
             "Sun, 06 ovD 1994 08:49:37 GMT",
             "Sun, 06 Nov 1994 24:49:37 GMT",
             "Sun, 06 Nov 1994 08:60:37 GMT",
             "Sun, 06 Nov 1994 08:49:61 GMT",
             "Sun, 06 Nov 1994 08:49:x7 GMT",
             "Sun, 06 Nov 1994 08:49:-1 GMT",
             "Sun, 06 Nov 1994 xx:49:37 GMT",
             "Sun, xx Nov 1994 08:49:37 GMT",
             "Sun, 32 Dec 1994 08:49:37 GMT",
             "Sun,  06 Nov 1994 08:49:37 GMT",
             "Sunday 06 Nov 1994 08:49:37 GMT",
             "Sunday, 06-Nov-94 08:49:37 GMT.",
             "Sun Nov  6 08:49:37 1994.",
             "06 Nov 1994, 08:49:37 GMT, Sun",
             "Sun, 06 Nov 1994 -8:49:37 GMT",
             "Sun, 06 Nov 19x4 08:49:37 GMT",
             "Sunday, 06-Nov-x4 08:49:37 GMT",
             "Sun Nov  6 08:49:37 -994",
             // Other separators.
             "Sun, 06-Nov 1994 08:49:37 GMT",
             "Sun, 06 Nov-1994 08:49:37 GMT",
             "Sun, 06 Nov 1994T08:49:37 GMT",
             "Sun, 06 Nov 1994 08.49:37 GMT",
             "Sun, 06 Nov 1994 08:49.37 GMT",
             "Sun, 06 Nov 1994 08:49:37_GMT",
             "Sun, 06 Nov 1994 08:49:37 UTC",
             "Sunday, 06 Nov-94 08:49:37 GMT",
             "Sunday, 06-Nov 94 08:49:37 GMT",
             "Sunday, 06-Nov-94-08:49:37 GMT",
             "Sunday, 06-Nov-94 08:49:37 UTC",
             "Sun-Nov  6 08:49:37 1994",
             "Sun Nov- 6 08:49:37 1994",
             "Sun Nov  6-08:49:37 1994",
             "Sun Nov  6 08:49:37-1994",
             // Blanks only before the day of the last form.
             "Sun,  6 Nov 1994 08:49:37 GMT",
             "Sun, 06 Nov 1994  8:49:37 GMT",
             "Sun, 06 Nov  994 08:49:37 GMT",
             // Weekdays, which must be right.
             "Mon, 06 Nov 1994 08:49:37 GMT",
             "sun, 06 Nov 1994 08:49:37 GMT",
             "unM, 06 Nov 1994 08:49:37 GMT",
             "Sun, 07 Nov 1994 08:49:37 GMT",
             "Monday, 06-Nov-94 08:49:37 GMT",
             "Sunda, 06-Nov-94 08:49:37 GMT",
             "Sundays, 06-Nov-94 08:49:37 GMT",
             "Someday, 06-Nov-94 08:49:37 GMT",
             "Mon Nov  6 08:49:37 1994",
             "xxx Nov  6 08:49:37 1994",
         }) {
        EXPECT_EQ(kit::readHttpDate(text), std::nullopt) << text;
    }
}

// RFC 9110, section 13.1.
TEST(ConditionalRequest, IsEvaluatedByItsHeaders) {
    const struct {
        Headers headers;
        Condition expected;
    } kCases[] = {
        {{}, Condition::Met},
        {{{"If-None-Match", "\"a\""}}, Condition::NotModified},
        {{{"If-None-Match", "W/\"a\""}}, Condition::NotModified},
        {{{"If-None-Match", "*"}}, Condition::NotModified},
        {{{"If-None-Match", " \"b\" ,, W/\"c,\" ,\"a\""}}, Condition::NotModified},
        {{{"If-None-Match", "\"b\", \"aa\""}}, Condition::Met},
        {{{"If-None-Match", "a"}}, Condition::Met},
        {{{"If-None-Match", "\"b, \"a\""}}, Condition::Met},
        {{{"If-None-Match", "w/\"a\""}}, Condition::Met},
        {{{"If-None-Match", "W/"}}, Condition::Met},
        {{{"If-None-Match", "\""}}, Condition::Met},
        {{{"If-None-Match", ""}}, Condition::Met},
        {{{"If-Modified-Since", kSundayText}}, Condition::NotModified},
        {{{"If-Modified-Since", kDayAfter}}, Condition::NotModified},
        {{{"If-Modified-Since", kDayBefore}}, Condition::Met},
        {{{"If-Modified-Since", "some day"}}, Condition::Met},
        {{{"If-Match", "\"a\""}}, Condition::Met},
        {{{"If-Match", "*"}}, Condition::Met},
        {{{"If-Match", "\"b\""}}, Condition::Failed},
        {{{"If-Match", "W/\"a\""}}, Condition::Failed},
        {{{"If-Unmodified-Since", kSundayText}}, Condition::Met},
        {{{"If-Unmodified-Since", kDayBefore}}, Condition::Failed},
        {{{"If-Unmodified-Since", "some day"}}, Condition::Met},
        // The entity tag takes precedence over the date.
        {{{"If-None-Match", "\"b\""}, {"If-Modified-Since", kDayAfter}}, Condition::Met},
        {{{"If-Match", "\"a\""}, {"If-Unmodified-Since", kDayBefore}}, Condition::Met},
        // What must match comes first.
        {{{"If-Match", "\"b\""}, {"If-None-Match", "\"a\""}}, Condition::Failed},
        {{{"If-Match", "\"a\""}, {"If-None-Match", "\"a\""}}, Condition::NotModified},
    };
    for (const auto& one : kCases) {
        EXPECT_EQ(conditionOf(one.headers), one.expected)
            << (one.headers.empty() ? "none" : one.headers[0].second);
    }
}

TEST(ConditionalRequest, NeverMatchesAWeakEntityTagStrongly) {
    EXPECT_EQ(conditionOf({{"If-Match", "W/\"a\""}}, "W/\"a\""), Condition::Failed);
    EXPECT_EQ(conditionOf({{"If-None-Match", "\"a\""}}, "W/\"a\""), Condition::NotModified);
}

TEST(ConditionalRequest, IgnoresDatesForWhatHasNone) {
    answerTo(with({{"If-Modified-Since", kDayAfter}, {"If-Unmodified-Since", kDayBefore}}),
             [](kit::Request& request, kit::Response&) {
                 EXPECT_EQ(kit::internal::conditionOf(request, {"\"a\""}), Condition::Met);
             });
}

// RFC 9110, section 14.1.2.
TEST(ByteRange, IsReadFromTheRequest) {
    const struct {
        const char* header;
        const char* expected;
    } kCases[] = {
        {"bytes=0-0", "0+1"},
        {"bytes=0-", "0+100"},
        {"bytes=10-19", "10+10"},
        {"bytes=90-", "90+10"},
        {"bytes=90-1000", "90+10"},
        {"bytes=99-99", "99+1"},
        {"Bytes=0-1", "0+2"},
        {"bytes=-10", "90+10"},
        {"bytes=-1000", "0+100"},
        {"bytes=0-18446744073709551616", "0+100"},
        {"bytes=-99999999999999999999", "0+100"},
        // Parts that the file does not have.
        {"bytes=100-", "0+0"},
        {"bytes=100-200", "0+0"},
        {"bytes=18446744073709551615-", "0+0"},
        {"bytes=99999999999999999999-", "0+0"},
        // The whole file is the answer to everything else.
        {"bytes=0-9,20-29", "all"},
        {"bytes=0-,", "all"},
        {"bytes=9-0", "all"},
        {"bytes=-", "all"},
        {"bytes=", "all"},
        {"bytes", "all"},
        {"", "all"},
        {"bytes=a-b", "all"},
        {"bytes=0-9x", "all"},
        {"bytes= 0-9", "all"},
        {"bytes=+1-9", "all"},
        {"bytes=--9", "all"},
        {"lines=0-9", "all"},
        {"0-9", "all"},
    };
    for (const auto& one : kCases) {
        EXPECT_EQ(rangeOf({{"Range", one.header}}), one.expected) << one.header;
    }
    // No byte at all is asked for.
    EXPECT_EQ(kit::internal::readRange("bytes=-0", 100)->size, 0u);
    EXPECT_FALSE(kit::internal::readRange("bytes=0-", 0));
    EXPECT_FALSE(kit::internal::readRange("bytes=-1", 0));
}

TEST(ByteRange, IsForGetOnly) {
    for (const char* method : {"HEAD", "POST", "get"}) {
        EXPECT_EQ(rangeOf({{"Range", "bytes=0-1"}}, method), "all") << method;
    }
    answerTo(with({{"Range", "bytes=0-1"}}).without("REQUEST_METHOD"),
             [](kit::Request& request, kit::Response&) {
                 EXPECT_FALSE(kit::internal::rangeOf(request, {"\"a\""}, 100));
             });
}

// RFC 9110, section 13.1.5.
TEST(ByteRange, IsForTheVersionThatIfRangeNames) {
    const auto rangeIf = [](const std::string& version, const std::string& own = "\"a\"") {
        return rangeOf({{"Range", "bytes=0-1"}, {"If-Range", version}}, "GET", own);
    };
    EXPECT_EQ(rangeIf("\"a\""), "0+2");
    EXPECT_EQ(rangeIf("\"b\""), "all");
    EXPECT_EQ(rangeIf("W/\"a\"", "W/\"a\""), "all");
    EXPECT_EQ(rangeIf(kSundayText), "all");
    EXPECT_EQ(rangeIf(""), "all");
}
