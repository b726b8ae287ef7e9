// What texts from strangers are made of.
#ifndef KIT_TEXT_H
#define KIT_TEXT_H

#include <cstddef>
#include <string_view>

namespace kit {

namespace internal {

inline bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

} // namespace internal

// The length of the well-formed UTF-8 character that `text`, which is not empty, begins with; 0 if
// it begins with none (RFC 3629, section 4).
inline std::size_t utf8Length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!internal::isContinuation(text[i])) {
            return 0;
        }
    }
    const auto second = static_cast<unsigned char>(text[1]);
    const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool surrogate = lead == 0xED && second > 0x9F;
    const bool beyondUnicode = lead == 0xF4 && second > 0x8F;
    return overlong || surrogate || beyondUnicode ? 0 : length;
}

// Whether all of `text` is well-formed UTF-8, as an empty one is.
inline bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

// Whether UTF-8 text holds a control character: below U+0020, or U+007F to U+009F.
inline bool hasControlCharacter(std::string_view text) {
    char before = 0;
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isC1 = before == '\xC2' && byte >= 0x80 && byte <= 0x9F;
        if (byte < 0x20 || byte == 0x7F || isC1) {
            return true;
        }
        before = c;
    }
    return false;
}

// Whether `text` is UTF-8 without any control character, a line end or a tab neither.
inline bool isPlainLine(std::string_view text) {
    return !hasControlCharacter(text) && isUtf8(text);
}

// The characters of `text`, which must be UTF-8; not its bytes.
inline std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (char byte : text) {
        count += internal::isContinuation(byte) ? 0 : 1;
    }
    return count;
}

// The beginning of `text`, of at most `maxBytes`, cut between two UTF-8 characters.
inline std::string_view shortened(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    std::size_t end = maxBytes;
    while (end > 0 && internal::isContinuation(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

} // namespace kit

#endif
