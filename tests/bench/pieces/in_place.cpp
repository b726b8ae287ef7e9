#include "in_place.h"

#include <cstring>

namespace {

int digit(char byte) {
    if (byte >= '0' && byte <= '9')
        return byte - '0';
    const int letter = byte | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// Takes one byte, or one escape, off the front of the terminated `text`, and returns it decoded.
char takeByte(char*& text) {
    if (*text == '%' && digit(text[1]) >= 0 && digit(text[2]) >= 0) {
        text += 3;
        return static_cast<char>(digit(text[-2]) * 16 + digit(text[-1]));
    }
    return *text++;
}

// Decodes in place and returns whether the result is free of zero bytes. Writes a terminator to
// `end`.
bool decode(char* text, char* end) {
    *end = '\0';
    while (text < end && *text != '%')
        ++text;
    char* out = text;
    while (text < end) {
        *out = takeByte(text);
        if (*out++ == '\0')
            return false;
    }
    *out = '\0';
    return true;
}

bool isBlank(char byte) {
    return byte == ' ' || byte == '\t';
}

} // namespace

pieces::InPlacePairs pieces::InPlacePairs::ofQuery(char* text) {
    InPlacePairs pairs;
    for (bool isLast = false; !isLast && pairs.m_size < kMaxPairs;) {
        Pair pair{text, nullptr};
        char* out = text;
        bool holdsZero = false;
        while (*text != '&' && *text != '\0') {
            if (*text == '=' && pair.value == nullptr) {
                *out = '\0';
                pair.value = out = ++text;
            } else if (*text == '+') {
                *out++ = ' ';
                ++text;
            } else {
                *out = takeByte(text);
                holdsZero = holdsZero || *out == '\0';
                ++out;
            }
        }
        isLast = *text++ == '\0';
        *out = '\0';
        if (pair.value == nullptr)
            pair.value = out;
        if (*pair.name != '\0' && !holdsZero)
            pairs.m_pairs[pairs.m_size++] = pair;
    }
    return pairs;
}

pieces::InPlacePairs pieces::InPlacePairs::ofCookie(char* text) {
    InPlacePairs pairs;
    char* const end = text + std::strlen(text);
    while (text < end && pairs.m_size < kMaxPairs) {
        auto* pairEnd = static_cast<char*>(std::strchr(text, ';'));
        if (pairEnd == nullptr)
            pairEnd = end;
        pairs.addCookie(text, pairEnd);
        text = pairEnd + 1;
    }
    return pairs;
}

void pieces::InPlacePairs::addCookie(char* begin, char* end) {
    while (begin < end && isBlank(*begin))
        ++begin;
    while (begin < end && isBlank(end[-1]))
        --end;
    *end = '\0';
    char* const equals = std::strchr(begin, '=');
    char* value = equals != nullptr ? equals + 1 : end;
    char* const nameEnd = equals != nullptr ? equals : end;
    if (end - value >= 2 && *value == '"' && end[-1] == '"') {
        ++value;
        --end;
    }
    if (begin < nameEnd && decode(begin, nameEnd) && decode(value, end))
        m_pairs[m_size++] = {begin, value};
}

const char* pieces::InPlacePairs::find(const char* name) const {
    for (std::size_t i = 0; i < m_size; ++i)
        if (std::strcmp(m_pairs[i].name, name) == 0)
            return m_pairs[i].value;
    return nullptr;
}
