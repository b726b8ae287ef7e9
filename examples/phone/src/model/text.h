// Questions about texts that strangers sent.
#ifndef MODEL_TEXT_H
#define MODEL_TEXT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// How many characters a text has; nothing when it is not UTF-8.
std::optional<std::size_t> characterCount(std::string_view text);

// Without blanks, tabs and line ends around it.
std::string_view trimmed(std::string_view text);

// A letter of ASCII as its small one, any other byte as it is.
inline char asciiLower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

inline bool isAsciiDigit(char character) {
    return character >= '0' && character <= '9';
}

inline bool isAsciiLetter(char character) {
    return asciiLower(character) >= 'a' && asciiLower(character) <= 'z';
}

} // namespace phone

#endif
