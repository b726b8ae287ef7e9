// Letters and digits of ASCII, whatever the locale is. All other bytes, also those of UTF-8, are
// neither, and have no case.
#ifndef BASE_ASCII_H
#define BASE_ASCII_H

#include <algorithm>
#include <string_view>

namespace base {

constexpr char asciiLower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

constexpr char asciiUpper(char character) {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A')
                                                : character;
}

constexpr bool isAsciiDigit(char character) {
    return character >= '0' && character <= '9';
}

constexpr bool isAsciiLetter(char character) {
    return asciiLower(character) >= 'a' && asciiLower(character) <= 'z';
}

inline bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           (left == right ||
            std::equal(left.begin(), left.end(), right.begin(),
                       [](char one, char other) { return asciiLower(one) == asciiLower(other); }));
}

} // namespace base

#endif
