#include "decode.h"

#include "base/ascii.h"
#include "header_value.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using cgi::Plus;

// -1 for what is no hexadecimal digit, whatever the locale.
int hexDigit(char character) {
    if (base::isAsciiDigit(character))
        return character - '0';
    const char lower = base::asciiLower(character);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
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

std::size_t countPairs(std::string_view text, char separator) {
    std::size_t count = 1;
    for (std::size_t at = text.find(separator); at != std::string_view::npos;
         at = text.find(separator, at + 1))
        ++count;
    return count;
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

// Where a decoded text ends, and whether it holds a zero byte.
struct Decoded {
    char* end;
    bool holdsZero;
};

// Escapes, pluses and zero bytes lie below most bytes.
bool isPlain(char byte) {
    return byte > '+';
}

// Writes `text`, decoded, to `to`.
Decoded writeDecoded(std::string_view text, Plus plus, char* to) {
    bool holdsZero = false;
    for (;;) {
        const auto plainEnd = std::find_if_not(text.begin(), text.end(), isPlain);
        to = std::copy(text.begin(), plainEnd, to);
        text.remove_prefix(plainEnd - text.begin());
        if (text.empty())
            return {to, holdsZero};
        const int escaped = escapedByte(text);
        if (escaped >= 0)
            *to = static_cast<char>(escaped);
        else
            *to = text.front() == '+' && plus == Plus::IsBlank ? ' ' : text.front();
        text.remove_prefix(escaped >= 0 ? 3 : 1);
        holdsZero = holdsZero || *to == '\0';
        ++to;
    }
}

void addDecoded(CGI_varlist& list, const Pair& pair, Plus plus) {
    char* const name = list.nextName();
    const Decoded decodedName = writeDecoded(pair.name, plus, name);
    char* const text = decodedName.end + 1;
    const Decoded decodedText = writeDecoded(pair.value, plus, text);
    if (decodedName.end != name && !decodedName.holdsZero && !decodedText.holdsZero)
        list.add(decodedName.end - name, decodedText.end - text);
}

// The pairs of `text`, at most `room` of them, as `splitPair` finds them between separators.
template <class SplitPair>
CGI_varlist::Owner pairsOf(std::string_view text, char separator, Plus plus, std::size_t room,
                           SplitPair splitPair) {
    if (text.empty() || room == 0)
        return nullptr;
    const std::size_t most = std::min(countPairs(text, separator), room);
    // A pair without "=" needs one byte more than it has.
    auto list = CGI_varlist::make(most, text.size() + 1 + most);
    while (!text.empty() && !list->isFull())
        addDecoded(*list, splitPair(takePair(text, separator)), plus);
    return list;
}

// RFC 6265, section 4.2.1. Blanks and quotes are dropped before decoding: those that a client has
// escaped are the value's own.
Pair splitCookie(std::string_view text) {
    const Pair pair = splitPair(cgi::withoutBlanksAround(text));
    return {pair.name, withoutQuotes(pair.value)};
}

bool isUnreserved(char character) {
    return base::isAsciiLetter(character) || base::isAsciiDigit(character) ||
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
    std::string decoded(text.size(), '\0');
    decoded.resize(writeDecoded(text, plus, decoded.data()).end - decoded.data());
    return decoded;
}

CGI_varlist::Owner cgi::fieldsOf(std::string_view text, std::size_t room) {
    // Only "&" separates: the URL Standard, unlike older customs, takes ";" for a plain character.
    return pairsOf(text, '&', Plus::IsBlank, room, splitPair);
}

CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie) {
    if (cookie == nullptr)
        return list;
    return cgi::addTo(list, [cookie](std::size_t room) {
        return pairsOf(cookie, ';', Plus::IsItself, room, splitCookie);
    });
}

CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query) {
    if (query == nullptr)
        return list;
    return cgi::addTo(list, [query](std::size_t room) { return cgi::fieldsOf(query, room); });
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
