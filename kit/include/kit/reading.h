// Reading a value out of a text, and saying what was wrong with it.
#ifndef KIT_READING_H
#define KIT_READING_H

#include "kit/text.h"

#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <system_error>

namespace kit {

// What was wrong with a text.
enum class Problem {
    none,
    missing,       // absent, or empty where that is no value
    notANumber,    // not all of it is a whole decimal number
    tooSmall,      // below the range, however far
    tooLarge,      // above the range, however far
    notAChoice,    // none of the values allowed
    tooShort,      // fewer characters than allowed
    tooLong,       // more
    badCharacters, // a control character, or no UTF-8
};

// For a log or a bare page, such as "is missing"; pages in several languages have their own texts.
inline const char* describe(Problem problem) {
    switch (problem) {
    case Problem::none:
        return "is fine";
    case Problem::missing:
        return "is missing";
    case Problem::notANumber:
        return "is not a whole number";
    case Problem::tooSmall:
        return "is too small";
    case Problem::tooLarge:
        return "is too large";
    case Problem::notAChoice:
        return "is none of the values allowed";
    case Problem::tooShort:
        return "is too short";
    case Problem::tooLong:
        return "is too long";
    case Problem::badCharacters:
        return "holds characters that are not allowed";
    }
    return "is wrong";
}

// A value, or what was wrong: exactly one of the two.
template <typename T>
class Reading {
public:
    // A reading that went well, and one that did not; functions return either as it is.
    Reading(T value) : m_value(std::move(value)) {}
    Reading(Problem problem) : m_problem(problem) {}

    // Whether there is a value.
    explicit operator bool() const { return m_value.has_value(); }
    // Only where there is one.
    const T& operator*() const { return *m_value; }
    // The value, or `fallback` where there is none.
    T valueOr(T fallback) const { return m_value.value_or(std::move(fallback)); }
    // Problem::none where there is one.
    Problem problem() const { return m_problem; }

private:
    std::optional<T> m_value;
    Problem m_problem = Problem::none;
};

// A whole decimal number from `min` to `max`; "-5" is one, "+5", " 5", "5x" and "0x5" are not.
template <typename Number>
Reading<Number> readNumber(std::optional<std::string_view> text, Number min, Number max) {
    if (!text || text->empty()) {
        return Problem::missing;
    }
    Number number{};
    const char* end = text->data() + text->size();
    const auto [rest, error] = std::from_chars(text->data(), end, number);
    if (rest != end || error == std::errc::invalid_argument) {
        // An unsigned type has no "-5", but it is a number, and too small.
        const bool negative = text->size() > 1 && text->front() == '-' &&
                              text->find_first_not_of("0123456789", 1) == text->npos;
        return negative ? Problem::tooSmall : Problem::notANumber;
    }
    if (error == std::errc::result_out_of_range) {
        return text->front() == '-' ? Problem::tooSmall : Problem::tooLarge;
    }
    if (number < min) {
        return Problem::tooSmall;
    }
    return number > max ? Reading<Number>(Problem::tooLarge) : Reading<Number>(number);
}

// A line of UTF-8 without control characters, of `min` to `max` characters.
inline Reading<std::string_view> readText(std::optional<std::string_view> text, std::size_t min,
                                          std::size_t max) {
    if (!text || (text->empty() && min > 0)) {
        return Problem::missing;
    }
    if (!isPlainLine(*text)) {
        return Problem::badCharacters;
    }
    const std::size_t length = characterCount(*text);
    if (length < min) {
        return Problem::tooShort;
    }
    return length > max ? Reading<std::string_view>(Problem::tooLong)
                        : Reading<std::string_view>(*text);
}

// One of `choices`; the reading is the text of the choice.
inline Reading<std::string_view> readChoice(std::optional<std::string_view> text,
                                            std::initializer_list<std::string_view> choices) {
    if (!text) {
        return Problem::missing;
    }
    for (std::string_view choice : choices) {
        if (*text == choice) {
            return choice;
        }
    }
    return Problem::notAChoice;
}

} // namespace kit

#endif
