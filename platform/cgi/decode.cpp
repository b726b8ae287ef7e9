#include "decode.h"

#include "header_value.h"

#include <cstdlib>
#include <cstring>

namespace {

using cgi::percentDecode;
using cgi::Plus;

// -1 for what is no hexadecimal digit, whatever the locale.
int hexDigit(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

// The byte that an escape at the beginning of `text` stands for, or -1 when there is none.
int escapedByte(std::string_view text) {
    if (text.size() < 3 || text[0] != '%')
        return -1;
    const int high = hexDigit(text[1]);
    const int low = hexDigit(text[2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// Takes the text up to the next `separator`, and that too, off the front of `rest`.
std::string_view takePair(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view pair = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return pair;
}

struct Pair {
    std::string_view name;
    std::string_view value;
};

Pair splitPair(std::string_view pair) {
    const std::size_t equals = pair.find('=');
    if (equals == std::string_view::npos)
        return {pair, {}};
    return {pair.substr(0, equals), pair.substr(equals + 1)};
}

std::string_view withoutQuotes(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return text.substr(1, text.size() - 2);
    return text;
}

// RFC 6265, section 4.2.1. Blanks and quotes are dropped before decoding: those that a client has
// escaped are the value's own.
void addCookies(CGI_varlist& list, std::string_view rest) {
    while (!rest.empty() && !list.isFull()) {
        const Pair pair = splitPair(cgi::withoutBlanksAround(takePair(rest, ';')));
        list.add(percentDecode(pair.name, Plus::IsItself),
                 percentDecode(withoutQuotes(pair.value), Plus::IsItself));
    }
}

bool isUnreserved(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           (character != '\0' && std::strchr("-_.~", character) != nullptr);
}

bool isKept(char character, const char* keep) {
    return isUnreserved(character) || std::strchr(keep, character) != nullptr;
}

std::size_t encodedLength(const char* text, const char* keep) {
    std::size_t length = 0;
    for (; *text != '\0'; ++text)
        length += isKept(*text, keep) ? 1 : 3;
    return length;
}

char* appendEscape(char* end, char character) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    *end++ = '%';
    *end++ = kDigits[byte / 16];
    *end++ = kDigits[byte % 16];
    return end;
}

} // namespace

std::string cgi::percentDecode(std::string_view text, Plus plus) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int byte = escapedByte(text.substr(at));
        if (byte >= 0) {
            decoded += static_cast<char>(byte);
            at += 2;
        } else if (text[at] == '+' && plus == Plus::IsBlank) {
            decoded += ' ';
        } else {
            decoded += text[at];
        }
    }
    return decoded;
}

void cgi::addFields(CGI_varlist& list, std::string_view text) {
    // Only "&" separates: the URL Standard, unlike older customs, takes ";" for a plain character.
    while (!text.empty() && !list.isFull()) {
        const Pair pair = splitPair(takePair(text, '&'));
        list.add(percentDecode(pair.name, Plus::IsBlank), percentDecode(pair.value, Plus::IsBlank));
    }
}

CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie) {
    if (cookie == nullptr)
        return list;
    return cgi::addTo(list, [cookie](CGI_varlist& added) { addCookies(added, cookie); });
}

CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query) {
    if (query == nullptr)
        return list;
    return cgi::addTo(list, [query](CGI_varlist& added) { cgi::addFields(added, query); });
}

char* CGI_encode_url(const char* text, const char* keep) {
    if (text == nullptr)
        return nullptr;
    if (keep == nullptr)
        keep = "";
    auto* encoded = static_cast<char*>(std::malloc(encodedLength(text, keep) + 1));
    if (encoded == nullptr)
        return nullptr;
    char* end = encoded;
    for (; *text != '\0'; ++text) {
        if (isKept(*text, keep))
            *end++ = *text;
        else
            end = appendEscape(end, *text);
    }
    *end = '\0';
    return encoded;
}
