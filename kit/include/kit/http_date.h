// Dates in HTTP headers (RFC 9110, section 5.6.7).
#ifndef KIT_HTTP_DATE_H
#define KIT_HTTP_DATE_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kit {

namespace internal {

// English, whatever the process's locale is.
inline constexpr std::string_view kWeekdays = "SunMonTueWedThuFriSat";
inline constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";

// Returns the number that `digits` is, after blanks, or a negative one.
inline int dateNumber(std::string_view digits) {
    digits.remove_prefix(std::min(digits.find_first_not_of(' '), digits.size()));
    int number = -1;
    const char* end = digits.data() + digits.size();
    return std::from_chars(digits.data(), end, number).ptr == end ? number : -1;
}

// The parts of a date, as they stand in it.
struct DateParts {
    std::string_view day, month, year, clock;
};

// Returns the parts of a date in one of the three forms that servers must accept:
//     Sun, 06 Nov 1994 08:49:37 GMT
//     Sunday, 06-Nov-94 08:49:37 GMT
//     Sun Nov  6 08:49:37 1994
inline std::optional<DateParts> datePartsOf(std::string_view text) {
    const std::size_t comma = text.find(", ");
    if (comma == 3 && text.size() == 29) {
        return DateParts{text.substr(5, 2), text.substr(8, 3), text.substr(12, 4),
                         text.substr(17, 8)};
    }
    if (comma != text.npos && text.size() == comma + 24) {
        const std::string_view rest = text.substr(comma + 2);
        return DateParts{rest.substr(0, 2), rest.substr(3, 3), rest.substr(7, 2),
                         rest.substr(10, 8)};
    }
    if (comma == text.npos && text.size() == 24) {
        return DateParts{text.substr(8, 2), text.substr(4, 3), text.substr(20, 4),
                         text.substr(11, 8)};
    }
    return std::nullopt;
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

// Reads a date in any of the three forms that HTTP knows. Returns nothing for any other text, and
// for a date that does not fit into std::time_t. A year of two digits is one from 1970 to 2069.
inline std::optional<std::time_t> readHttpDate(std::string_view text) {
    const auto parts = internal::datePartsOf(text);
    if (!parts) {
        return std::nullopt;
    }
    const std::size_t month = internal::kMonths.find(parts->month);
    std::tm utc{};
    utc.tm_mday = internal::dateNumber(parts->day);
    utc.tm_mon = static_cast<int>(month / 3);
    const int year = internal::dateNumber(parts->year);
    const int century = parts->year.size() > 2 ? 0 : year < 70 ? 2000 : 1900;
    utc.tm_year = century + year - 1900;
    utc.tm_hour = internal::dateNumber(parts->clock.substr(0, 2));
    utc.tm_min = internal::dateNumber(parts->clock.substr(3, 2));
    utc.tm_sec = internal::dateNumber(parts->clock.substr(6, 2));
    if (month == parts->month.npos || month % 3 != 0 || year < 0) {
        return std::nullopt;
    }
    // timegm(3) accepts every number, and turns the 31st of a short month into another day.
    const std::tm wanted = utc;
    const std::time_t time = timegm(&utc);
    const bool isThatTime = utc.tm_mday == wanted.tm_mday && utc.tm_mon == wanted.tm_mon &&
                            utc.tm_hour == wanted.tm_hour && utc.tm_min == wanted.tm_min &&
                            utc.tm_sec == wanted.tm_sec;
    return isThatTime && time != -1 ? std::optional(time) : std::nullopt;
}

} // namespace kit

#endif
