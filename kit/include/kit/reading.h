// Reading values from text that a client sent, and reporting what is wrong with them.
#ifndef KIT_READING_H
#define KIT_READING_H

#include "kit/text.h"

#include <cassert>
#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <system_error>

namespace kit {

// Why a text was refused.
enum class Problem {
    None,
    Missing,       // absent, or empty although a value is required
    NotANumber,    // not a whole decimal number
    TooSmall,      // a number below the range, by however much
    TooLarge,      // a number above the range, by however much
    NotAChoice,    // none of the allowed values
    TooShort,      // fewer characters than allowed
    TooLong,       // more characters than allowed
    BadCharacters, // a control character, or not UTF-8
    WrongType,     // JSON of another type
    Incomplete,    // a body that ended before its announced length, or a malformed upload
    NotStored,     // an upload for which there is no room on the disk, or the like
};

// Returns an English predicate for the problem, such as "is missing". Never null. Pages in several
// languages need texts of their own.
inline const char* describe(Problem problem) {
    switch (problem) {
    case Problem::None:
        return "is fine";
    case Problem::Missing:
        return "is missing";
    case Problem::NotANumber:
        return "is not a whole number";
    case Problem::TooSmall:
        return "is too small";
    case Problem::TooLarge:
        return "is too large";
    case Problem::NotAChoice:
        return "is not one of the allowed values";
    case Problem::TooShort:
        return "is too short";
    case Problem::TooLong:
        return "is too long";
    case Problem::BadCharacters:
        return "contains characters that are not allowed";
    case Problem::WrongType:
        return "is of the wrong type";
    case Problem::Incomplete:
        return "is incomplete";
    case Problem::NotStored:
        return "could not be stored";
    }
    return "is wrong";
}

// Holds either a value or a Problem.
template <typename T>
class Reading {
public:
    // Implicit, so that a function can return a value or a problem as it is.
    Reading(T value) : m_value(std::move(value)) {}
    // `problem` must not be Problem::None.
    Reading(Problem problem) : m_problem(problem) {
        assert(problem != Problem::None && "`problem` must not be Problem::None");
    }

    // Returns whether there is a value.
    explicit operator bool() const { return m_value.has_value(); }
    // Returns the value. There must be one.
    const T& operator*() const {
        assert(m_value && "there must be a value");
        return *m_value;
    }
    // Returns the value, or `fallback` if there is none.
    T valueOr(T fallback) const { return m_value.value_or(std::move(fallback)); }
    // Returns what is wrong; Problem::None if there is a value.
    Problem problem() const { return m_problem; }

private:
    std::optional<T> m_value;
    Problem m_problem = Problem::None;
};

// Reads a whole decimal number from `min` to `max`, both included; `min` must not be above `max`.
// "-5" is a number; "+5", " 5", "5x" and "0x5" are not.
template <typename Number>
Reading<Number> readNumber(std::optional<std::string_view> text, Number min, Number max) {
    assert(min <= max && "`min` must not be above `max`");
    if (!text || text->empty()) {
        return Problem::Missing;
    }
    Number number{};
    const char* end = text->data() + text->size();
    const auto [rest, error] = std::from_chars(text->data(), end, number);
    if (rest != end || error == std::errc::invalid_argument) {
        // from_chars() accepts no "-5" for an unsigned type; here it is a number that is too small.
        const bool negative = text->size() > 1 && text->front() == '-' &&
                              text->find_first_not_of("0123456789", 1) == text->npos;
        return negative ? Problem::TooSmall : Problem::NotANumber;
    }
    if (error == std::errc::result_out_of_range) {
        return text->front() == '-' ? Problem::TooSmall : Problem::TooLarge;
    }
    if (number < min) {
        return Problem::TooSmall;
    }
    return number > max ? Reading<Number>(Problem::TooLarge) : Reading<Number>(number);
}

// Reads one line of UTF-8 without control characters, of `min` to `max` characters (not bytes);
// `min` must not be above `max`. The value is `text` itself, not a copy.
inline Reading<std::string_view> readText(std::optional<std::string_view> text, std::size_t min,
                                          std::size_t max) {
    assert(min <= max && "`min` must not be above `max`");
    if (!text || (text->empty() && min > 0)) {
        return Problem::Missing;
    }
    if (!isPlainLine(*text)) {
        return Problem::BadCharacters;
    }
    const std::size_t length = characterCount(*text);
    if (length < min) {
        return Problem::TooShort;
    }
    return length > max ? Reading<std::string_view>(Problem::TooLong)
                        : Reading<std::string_view>(*text);
}

// Reads one of `choices`. The value is the matching element of `choices`, not a part of `text`.
inline Reading<std::string_view> readChoice(std::optional<std::string_view> text,
                                            std::initializer_list<std::string_view> choices) {
    if (!text) {
        return Problem::Missing;
    }
    for (std::string_view choice : choices) {
        if (*text == choice) {
            return choice;
        }
    }
    return Problem::NotAChoice;
}

} // namespace kit

#endif
