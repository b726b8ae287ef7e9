// Dates in HTTP headers (RFC 9110, section 5.6.7).
#ifndef KIT_HTTP_DATE_H
#define KIT_HTTP_DATE_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace kit {

namespace internal {

// English, whatever the process's locale is.
inline constexpr std::string_view kWeekdays = "SunMonTueWedThuFriSat";
inline constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";

// Returns the number that `count` digits at `at` are; negative for other characters.
inline int dateNumber(std::string_view text, std::size_t at, std::size_t count) {
    int number = -1;
    const char* begin = text.data() + at;
    return std::from_chars(begin, begin + count, number).ptr == begin + count ? number : -1;
}

// Returns "Sunday, 06-Nov-94 08:49:37 GMT" in the form that httpDate() writes; empty for other
// words than weekdays, other separators and another length.
inline std::string withWholeYear(std::string_view text) {
    const std::size_t comma = text.find(',');
    if (comma == text.npos || text.size() != comma + 24 || text[comma + 4] != '-' ||
        text[comma + 8] != '-') {
        return "";
    }
    constexpr std::string_view kNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                           "Thursday", "Friday", "Saturday"};
    if (std::find(std::begin(kNames), std::end(kNames), text.substr(0, comma)) ==
        std::end(kNames)) {
        return "";
    }
    std::string date(text.substr(0, 3));
    date.append(text.substr(comma, 4)).append(" ").append(text.substr(comma + 5, 3));
    date.append(dateNumber(text, comma + 9, 2) < 70 ? " 20" : " 19");
    return date.append(text.substr(comma + 9));
}

// Returns "Sun Nov  6 08:49:37 1994" in the form that httpDate() writes, with the other separators
// that it has; empty without a blank after the weekday and before the year. The day may have two
// digits.
inline std::string withYearBeforeTime(std::string_view text) {
    if (text[3] != ' ' || text[19] != ' ') {
        return "";
    }
    std::string date(text.substr(0, 3));
    date.append(", ").append(1, text[8] == ' ' ? '0' : text[8]).append(1, text[9]);
    date.append(text.substr(7, 1)).append(text.substr(4, 4)).append(text.substr(20));
    return date.append(text.substr(10, 9)).append(" GMT");
}

} // namespace internal

// Returns the date as headers contain it, such as "Sun, 06 Nov 1994 08:49:37 GMT". Empty for a
// year that has not four digits.
inline std::string httpDate(std::time_t time) {
    constexpr int kFirstYear = 1000;
    constexpr int kLastYear = 9999;
    std::tm utc{};
    if (!gmtime_r(&time, &utc) || utc.tm_year < kFirstYear - 1900 ||
        utc.tm_year > kLastYear - 1900) {
        return "";
    }
    char text[96];
    std::snprintf(text, sizeof text, "%.3s, %02d %.3s %d %02d:%02d:%02d GMT",
                  &internal::kWeekdays[static_cast<std::size_t>(utc.tm_wday) * 3], utc.tm_mday,
                  &internal::kMonths[static_cast<std::size_t>(utc.tm_mon) * 3], utc.tm_year + 1900,
                  utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

// Reads a date in any of the three forms that servers must accept:
//     Sun, 06 Nov 1994 08:49:37 GMT
//     Sunday, 06-Nov-94 08:49:37 GMT
//     Sun Nov  6 08:49:37 1994
// Returns nothing for any other text, for a weekday that the date does not have, for a year before
// 1000, and for a date that does not fit into std::time_t. A year of two digits is one from 1970 to
// 2069.
inline std::optional<std::time_t> readHttpDate(std::string_view text) {
    constexpr std::size_t kSize = 29;
    constexpr std::size_t kSizeWithYearLast = 24;
    const std::string date = text.size() == kSizeWithYearLast ? internal::withYearBeforeTime(text)
                             : text.find(',') == 3            ? std::string(text)
                                                              : internal::withWholeYear(text);
    if (date.size() != kSize) {
        return std::nullopt;
    }
    const std::size_t month = internal::kMonths.find(date.substr(8, 3));
    if (month == internal::kMonths.npos) {
        return std::nullopt;
    }
    std::tm utc{};
    utc.tm_mday = internal::dateNumber(date, 5, 2);
    utc.tm_mon = static_cast<int>(month / 3);
    utc.tm_year = internal::dateNumber(date, 12, 4) - 1900;
    utc.tm_hour = internal::dateNumber(date, 17, 2);
    utc.tm_min = internal::dateNumber(date, 20, 2);
    utc.tm_sec = internal::dateNumber(date, 23, 2);
    const std::time_t time = timegm(&utc);
    // timegm(3) accepts every number, and turns the 31st of a short month into another day. A date
    // that is written the same again had the right weekday, separators and numbers.
    return httpDate(time) == date ? std::optional(time) : std::nullopt;
}

} // namespace kit

#endif
