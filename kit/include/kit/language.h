// Choosing the language of a page.
#ifndef KIT_LANGUAGE_H
#define KIT_LANGUAGE_H

#include "base/ascii.h"

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace kit {

namespace internal {

inline std::string_view trimmedBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == text.npos ? std::string_view()
                              : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Removes the text up to the first `separator` from `rest`, and returns it without the blanks
// around it.
inline std::string_view takeUntil(std::string_view& rest, char separator) {
    const std::string_view taken = rest.substr(0, rest.find(separator));
    rest.remove_prefix(taken.size() < rest.size() ? taken.size() + 1 : taken.size());
    return trimmedBlanks(taken);
}

// Returns the parameter "q" in thousandths; 1000 if it is absent or wrong (RFC 9110, section
// 12.4.2).
inline int qualityOf(std::string_view parameters) {
    constexpr int kBest = 1000;
    while (!parameters.empty()) {
        const std::string_view one = takeUntil(parameters, ';');
        if (one.size() < 3 || base::asciiLower(one[0]) != 'q' || one[1] != '=') {
            continue;
        }
        if (one[2] != '0') {
            return kBest;
        }
        int quality = 0;
        for (std::size_t i = 4; i < 7; ++i) {
            const bool isDigit = i < one.size() && base::isAsciiDigit(one[i]);
            quality = quality * 10 + (isDigit ? one[i] - '0' : 0);
        }
        return quality;
    }
    return kBest;
}

// Returns whether `tag` is `prefix`, or continues with another subtag: "de-AT" for "de".
inline bool isWithin(std::string_view tag, std::string_view prefix) {
    return base::equalsIgnoringCase(tag.substr(0, prefix.size()), prefix) &&
           (tag.size() == prefix.size() || tag[prefix.size()] == '-' || tag[prefix.size()] == '_');
}

} // namespace internal

// Returns the one of `choices` that a browser with this Accept-Language header likes best, or
// nothing if it likes none. "de-AT" matches the choices "de-AT" and "de", "zh" also "zh-CN"; among
// languages that the browser likes equally, the first in its header wins (RFC 4647, section 3.4).
// The result is the matching element of `choices`.
inline std::optional<std::string_view>
preferredLanguage(std::string_view acceptLanguage,
                  std::initializer_list<std::string_view> choices) {
    std::optional<std::string_view> best;
    int bestQuality = 0;
    while (!acceptLanguage.empty()) {
        std::string_view parameters = internal::takeUntil(acceptLanguage, ',');
        const std::string_view tag = internal::takeUntil(parameters, ';');
        const int quality = internal::qualityOf(parameters);
        if (tag.empty() || quality <= bestQuality) {
            continue;
        }
        for (const std::string_view choice : choices) {
            if (tag == "*" || internal::isWithin(tag, choice) || internal::isWithin(choice, tag)) {
                best = choice;
                bestQuality = quality;
                break;
            }
        }
    }
    return best;
}

} // namespace kit

#endif
