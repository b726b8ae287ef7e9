#include "model/csv_text.h"

#include "base/utf8.h"
#include "model/code_points.h"

#include <algorithm>
#include <iconv.h>
#include <optional>

namespace phone {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void append(std::string& text, char32_t character) {
    const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
    if (character < 0x80) {
        text += byte(character);
    } else if (character < 0x800) {
        text += {byte(0xC0 | (character >> 6)), byte(0x80 | (character & 0x3F))};
    } else if (character < 0x10000) {
        text += {byte(0xE0 | (character >> 12)), byte(0x80 | ((character >> 6) & 0x3F)),
                 byte(0x80 | (character & 0x3F))};
    } else {
        text += {byte(0xF0 | (character >> 18)), byte(0x80 | ((character >> 12) & 0x3F)),
                 byte(0x80 | ((character >> 6) & 0x3F)), byte(0x80 | (character & 0x3F))};
    }
}

// `low` is the place of the lower byte of each pair: 0 or 1.
std::string fromUtf16(std::string_view file, std::size_t low) {
    std::string text;
    char32_t high = 0;
    for (std::size_t i = 0; i + 1 < file.size(); i += 2) {
        const auto unit = static_cast<char32_t>(static_cast<unsigned char>(file[i + low]) |
                                                static_cast<unsigned char>(file[i + 1 - low]) << 8);
        const bool isSecond = isBetween(unit, 0xDC00, 0xDFFF);
        if (high != 0) {
            append(text,
                   isSecond ? 0x10000 + ((high & 0x3FF) << 10) + (unit & 0x3FF) : kReplacement);
        }
        const bool isPairEnd = high != 0 && isSecond;
        high = isBetween(unit, 0xD800, 0xDBFF) ? unit : 0;
        if (high == 0 && !isPairEnd) {
            append(text, isSecond ? kReplacement : unit);
        }
    }
    if (high != 0 || file.size() % 2 != 0) {
        append(text, kReplacement);
    }
    return text;
}

std::string fromWindows1252(std::string_view file) {
    // The characters of the bytes 80 to 9F; the others are those of Unicode.
    static constexpr char16_t kSpecial[] =
        u"\u20AC\uFFFD\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\uFFFD"
        u"\u017D\uFFFD\uFFFD\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A"
        u"\u0153\uFFFD\u017E\u0178";
    std::string text;
    for (const char character : file) {
        const auto byte = static_cast<unsigned char>(character);
        append(text, isBetween(byte, 0x80, 0x9F) ? kSpecial[byte - 0x80] : byte);
    }
    return text;
}

class Converter {
public:
    Converter(const char* to, const char* from) : m_converter(iconv_open(to, from)) {}
    ~Converter() {
        if (isOpen()) {
            iconv_close(m_converter);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    bool isOpen() const {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): what the C library returns on failure
        return m_converter != reinterpret_cast<iconv_t>(-1);
    }
    iconv_t get() const { return m_converter; }

private:
    iconv_t m_converter;
};

// Returns nothing if the C library cannot convert it.
std::optional<std::string> fromGb18030(std::string_view file) {
    const Converter converter("UTF-8", "GB18030");
    if (!converter.isOpen()) {
        return std::nullopt;
    }
    std::string source(file);
    std::string text(2 * file.size() + 4, '\0'); // two bytes become three, or four become four
    char* from = source.data();
    std::size_t left = source.size();
    char* to = text.data();
    std::size_t room = text.size();
    while (left > 0 && room >= 4) {
        if (iconv(converter.get(), &from, &left, &to, &room) == static_cast<std::size_t>(-1) &&
            left > 0 && room >= 4) {
            for (const char byte : {'\xEF', '\xBF', '\xBD'}) {
                *to++ = byte;
            }
            room -= 3;
            ++from;
            --left;
        }
    }
    text.resize(text.size() - room);
    return text;
}

} // namespace

std::string csvText(std::string_view file, bool isChinese) {
    if (file.substr(0, 2) == "\xFF\xFE") {
        return fromUtf16(file.substr(2), 0);
    }
    if (file.substr(0, 2) == "\xFE\xFF") {
        return fromUtf16(file.substr(2), 1);
    }
    if (base::isUtf8(file) || file.substr(0, 3) == "\xEF\xBB\xBF") {
        return std::string(file);
    }
    const std::optional<std::string> chinese = isChinese ? fromGb18030(file) : std::nullopt;
    return chinese ? *chinese : fromWindows1252(file);
}

bool isBinary(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 && byte != '\t' && byte != '\r' && byte != '\n';
    });
}

} // namespace phone
