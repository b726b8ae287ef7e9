// UTF-8 (RFC 3629) in untrusted text.
#ifndef BASE_UTF8_H
#define BASE_UTF8_H

#include <cstddef>
#include <string_view>

namespace base {

// Returns whether `byte` continues a character that began before it.
inline bool isUtf8Continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Returns the length in bytes of the well-formed character that `text` begins with; 0 when it
// begins with none, or is empty (RFC 3629, section 4).
inline std::size_t utf8Length(std::string_view text) {
    if (text.empty())
        return 0;
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if (!isUtf8Continuation(text[i]))
            return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool surrogate = lead == 0xED && second > 0x9F;
    const bool beyondUnicode = lead == 0xF4 && second > 0x8F;
    return overlong || surrogate || beyondUnicode ? 0 : length;
}

// Returns whether the whole `text` is well-formed; an empty text is.
inline bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

} // namespace base

#endif
