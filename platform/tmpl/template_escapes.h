// How the built-in formats escape a value.
//
// Each format has
//   isSpecial  whether a byte may have to be replaced. Zero is special in every format: it follows
//              a value, so that a search for special bytes ends there.
//   replace    writes what replaces the first bytes of `rest`, which begins with a special byte, to
//              `to`: at most kMaxReplacement bytes, which may be the byte itself.
#ifndef TEMPLATE_ESCAPES_H
#define TEMPLATE_ESCAPES_H

#include "base/ascii.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace tmpl {

constexpr std::size_t kMaxReplacement = 6;

// How many bytes replace() wrote, and how many it replaced.
struct Replaced {
    std::size_t written;
    std::size_t read;
};

// A table, since most bytes stay as they are.
using Bytes = std::array<bool, 256>;

constexpr Bytes bytesThat(bool (*predicate)(unsigned char)) {
    Bytes bytes{};
    for (unsigned i = 0; i < bytes.size(); ++i)
        bytes[i] = predicate(static_cast<unsigned char>(i));
    return bytes;
}

constexpr bool isOneOf(std::string_view bytes, unsigned char byte) {
    return bytes.find(static_cast<char>(byte)) != std::string_view::npos;
}

// Replaces `read` bytes by `text`.
template <std::size_t size>
Replaced replaceBy(const char (&text)[size], char* to, std::size_t read = 1) {
    static_assert(size - 1 <= kMaxReplacement);
    std::memcpy(to, text, size - 1);
    return {size - 1, read};
}

inline Replaced keepByte(std::string_view rest, char* to) {
    *to = rest.front();
    return {1, 1};
}

constexpr char kHexDigits[] = "0123456789ABCDEF";

struct HtmlEscape {
    static constexpr Bytes isSpecial =
        bytesThat([](unsigned char byte) { return byte == 0 || isOneOf("&<>\"'", byte); });

    static Replaced replace(std::string_view rest, char* to) {
        switch (rest.front()) {
        case '&':
            return replaceBy("&amp;", to);
        case '<':
            return replaceBy("&lt;", to);
        case '>':
            return replaceBy("&gt;", to);
        case '"':
            return replaceBy("&quot;", to);
        case '\'':
            return replaceBy("&#39;", to);
        default:
            return keepByte(rest, to);
        }
    }
};

// Escapes all but the unreserved characters of RFC 3986, section 2.3.
struct UrlEscape {
    static constexpr Bytes isSpecial = bytesThat([](unsigned char byte) {
        const auto character = static_cast<char>(byte);
        return !base::isAsciiLetter(character) && !base::isAsciiDigit(character) &&
               !isOneOf("-._~", byte);
    });

    static Replaced replace(std::string_view rest, char* to) {
        const auto byte = static_cast<unsigned char>(rest.front());
        const char escape[] = {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15], '\0'};
        return replaceBy(escape, to);
    }
};

// Escapes all that ends a string of any kind, begins an escape or a substitution in one, or means
// something to an HTML parser, which reads the script first. U+2028 and U+2029 end a line in older
// scripts.
struct JsEscape {
    static constexpr unsigned char kFirstOfLineSeparators = 0xe2;
    static constexpr Bytes isSpecial = bytesThat([](unsigned char byte) {
        return byte < 0x20 || isOneOf("\\'\"`$<>&/\x7f", byte) || byte == kFirstOfLineSeparators;
    });

    static Replaced replace(std::string_view rest, char* to) {
        constexpr std::string_view kLineSeparator = "\xe2\x80\xa8";
        constexpr std::string_view kParagraphSeparator = "\xe2\x80\xa9";
        const auto byte = static_cast<unsigned char>(rest.front());
        if (rest.substr(0, 3) == kLineSeparator)
            return replaceBy("\\u2028", to, 3);
        if (rest.substr(0, 3) == kParagraphSeparator)
            return replaceBy("\\u2029", to, 3);
        if (byte == kFirstOfLineSeparators)
            return keepByte(rest, to);
        const char escape[] = {'\\', 'u', '0', '0', kHexDigits[byte >> 4], kHexDigits[byte & 15],
                               '\0'};
        return replaceBy(escape, to);
    }
};

} // namespace tmpl

#endif
