// UTF-8 helpers for untrusted text.
#ifndef KIT_TEXT_H
#define KIT_TEXT_H

#include "base/utf8.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <string_view>

namespace kit {

// utf8Length(text) returns the length in bytes of the well-formed UTF-8 character that `text`
// begins with, or 0 if it begins with none. isUtf8(text) returns whether all of `text` is
// well-formed.
using base::isUtf8;
using base::utf8Length;

// Returns whether UTF-8 text contains a control character: U+0000 to U+001F or U+007F to U+009F.
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

// Returns whether `text` is UTF-8 without control characters; line ends and tabs are such.
inline bool isPlainLine(std::string_view text) {
    return !hasControlCharacter(text) && isUtf8(text);
}

// Returns the number of characters, not bytes, of `text`, which must be UTF-8.
inline std::size_t characterCount(std::string_view text) {
    assert(isUtf8(text) && "`text` must be UTF-8");
    const auto isLead = [](char byte) { return !base::isUtf8Continuation(byte); };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isLead));
}

// Returns the beginning of `text`, at most `maxBytes` bytes of it, without cutting a UTF-8
// character in two.
inline std::string_view shortened(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    std::size_t end = maxBytes;
    while (end > 0 && base::isUtf8Continuation(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

} // namespace kit

#endif
