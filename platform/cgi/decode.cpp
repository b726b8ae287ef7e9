#include "decode.h"

#include "base/ascii.h"
#include "header_value.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using cgi::Plus;

// Returns the value of a hexadecimal digit, or -1 for any other character.
int hexDigit(char character) {
    if (base::isAsciiDigit(character))
        return character - '0';
    const char lower = base::asciiLower(character);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Returns the byte that the escape at the beginning of `text` stands for, or -1 without one.
int escapedByte(std::string_view text) {
    if (text.size() < 3 || text[0] != '%')
        return -1;
    const int high = hexDigit(text[1]);
    const int low = hexDigit(text[2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// Removes the text up to the next `separator`, and the separator, from the front of `rest`. Returns
// that text.
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
    // Names are short: a loop finds their end sooner than memchr(3), which find() calls.
    const auto end = std::find(pair.begin(), pair.end(), '=');
    const std::size_t size = end - pair.begin();
    return {pair.substr(0, size), pair.substr(std::min(size + 1, pair.size()))};
}

std::string_view withoutQuotes(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return text.substr(1, text.size() - 2);
    return text;
}

struct Decoded {
    char* end;    // of the decoded text
    bool hasZero; // whether a zero byte is in it
};

// Fast path: '%', '+' and NUL are all <= '+', so any byte above stands for itself.
bool isPlain(char byte) {
    return byte > '+';
}

// Decodes the text from `begin` to `end` in its place.
Decoded decodeInPlace(char* begin, char* end, Plus plus) {
    char* from = std::find_if_not(begin, end, isPlain);
    char* to = from;
    bool hasZero = false;
    while (from != end) {
        const int escaped = escapedByte({from, static_cast<std::size_t>(end - from)});
        if (escaped >= 0)
            *to = static_cast<char>(escaped);
        else
            *to = *from == '+' && plus == Plus::Blank ? ' ' : *from;
        from += escaped >= 0 ? 3 : 1;
        hasZero = hasZero || *to == '\0';
        ++to;
        while (from != end && isPlain(*from))
            *to++ = *from++;
    }
    return {to, hasZero};
}

// Adds a pair, whose texts are in the list's, unless it is one that no list can hold. There must be
// a place left.
void addDecoded(CGI_varlist& list, const Pair& pair, Plus plus) {
    char* const name = list.text() + (pair.name.data() - list.text());
    char* const value = list.text() + (pair.value.data() - list.text());
    const Decoded decodedName = decodeInPlace(name, name + pair.name.size(), plus);
    const Decoded decodedValue = decodeInPlace(value, value + pair.value.size(), plus);
    if (decodedName.end != name && !decodedName.hasZero && !decodedValue.hasZero)
        list.add({name, static_cast<std::size_t>(decodedName.end - name)},
                 {value, static_cast<std::size_t>(decodedValue.end - value)});
}

// Returns a list of the pairs between separators, at most `room` of them; `split` splits each into
// its name and its value. Null when `text` is empty or `room` is 0.
template <class Split>
CGI_varlist::Owner decodePairs(std::string_view text, char separator, Plus plus, std::size_t room,
                               Split split) {
    if (text.empty() || room == 0)
        return nullptr;
    auto list = CGI_varlist::make(std::min(countPairs(text, separator), room), text);
    std::string_view rest(list->text(), text.size());
    while (!rest.empty() && !list->isFull())
        addDecoded(*list, split(takePair(rest, separator)), plus);
    return list;
}

// Splits one pair of a Cookie header (RFC 6265, section 4.2.1). Blanks and quotes are dropped
// before decoding, so those that a client has escaped stay part of the value.
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
    std::string decoded(text);
    char* const begin = decoded.data();
    decoded.resize(decodeInPlace(begin, begin + decoded.size(), plus).end - begin);
    return decoded;
}

CGI_varlist::Owner cgi::decodeFields(std::string_view text, std::size_t room) {
    // Only "&" separates: in the URL Standard ";" is a plain character, unlike in older practice.
    return decodePairs(text, '&', Plus::Blank, room, splitPair);
}

CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie) {
    if (cookie == nullptr)
        return list;
    return cgi::addTo(list, [cookie](std::size_t room) {
        return decodePairs(cookie, ';', Plus::Itself, room, splitCookie);
    });
}

CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query) {
    if (query == nullptr)
        return list;
    return cgi::addTo(list, [query](std::size_t room) { return cgi::decodeFields(query, room); });
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
