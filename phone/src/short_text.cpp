#include "short_text.h"

namespace phone {

std::string shortText(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return std::string(text);
    }
    std::size_t length = maxBytes;
    // RFC 3629, section 3: the bytes inside a character begin with the bits 10.
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    return std::string(text.substr(0, length));
}

} // namespace phone
