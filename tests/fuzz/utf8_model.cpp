#include "utf8_model.h"

namespace {

constexpr unsigned long kLeast[] = {0, 0x80, 0x800, 0x10000}; // by the number of further bytes
constexpr unsigned long kMost = 0x10FFFF;

bool isSurrogate(unsigned long character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

unsigned byteAt(const std::string& text, std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
}

} // namespace

bool fuzz::isUtf8Text(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const unsigned lead = byteAt(text, at);
        if ((lead >= 0x80 && lead < 0xC0) || lead >= 0xF8)
            return false;
        const unsigned more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        unsigned long character = more == 0 ? lead : lead & (0x3Fu >> more);
        for (unsigned i = 1; i <= more; ++i) {
            if ((byteAt(text, at + i) & 0xC0) != 0x80)
                return false;
            character = character << 6 | (byteAt(text, at + i) & 0x3F);
        }
        if (character < kLeast[more] || character > kMost || isSurrogate(character))
            return false;
        at += more + 1;
    }
    return true;
}
