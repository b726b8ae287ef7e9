#include "pairs.h"

#include "fuzz.h"
#include "varlist.h"

#include <algorithm>

namespace {

using fuzz::Pairs;
using fuzz::require;
using fuzz::trimmed;

const std::string kHexDigits = "0123456789abcdefABCDEF";

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char byte : text) {
        if (byte == separator)
            pieces.emplace_back();
        else
            pieces.back() += byte;
    }
    return pieces;
}

std::string withBlanks(std::string text) {
    std::replace(text.begin(), text.end(), '+', ' ');
    return text;
}

std::string unquoted(const std::string& text) {
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string nameOf(const std::string& pair) {
    return pair.substr(0, pair.find('='));
}
std::string valueOf(const std::string& pair) {
    const std::size_t equals = pair.find('=');
    return equals == std::string::npos ? "" : pair.substr(equals + 1);
}

// Returns the values, each with a line feed.
std::string joined(char** values) {
    std::string text;
    for (; values != nullptr && *values != nullptr; ++values)
        text += std::string(*values) + "\n";
    return text;
}
std::string joined(const Pairs& pairs, const std::string& name) {
    std::string text;
    for (const auto& [itsName, value] : pairs)
        if (itsName == name)
            text += value + "\n";
    return text;
}

void requireValues(CGI_varlist* list, const Pairs& expected, const std::string& name) {
    require(joined(CGI_lookup_all(list, name.c_str())) == joined(expected, name),
            "a look-up finds all values of a name, in order");
    const auto first = std::find_if(expected.begin(), expected.end(),
                                    [&](const auto& pair) { return pair.first == name; });
    require(CGI_lookup(list, name.c_str()) == first->second,
            "a look-up finds the first value of a name");
}

} // namespace

std::string fuzz::decoded(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string digits = text.substr(at + 1, 2);
        if (text[at] == '%' && digits.size() == 2 &&
            digits.find_first_not_of(kHexDigits) == std::string::npos) {
            result += static_cast<char>(std::stoi(digits, nullptr, 16));
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

void fuzz::add(Pairs& pairs, const std::string& name, const std::string& value) {
    const bool hasZero = (name + value).find('\0') != std::string::npos;
    if (!name.empty() && !hasZero && pairs.size() < 1000)
        pairs.emplace_back(name, value);
}

Pairs fuzz::pairsOfQuery(const std::string& text) {
    Pairs pairs;
    for (const std::string& pair : split(text, '&'))
        add(pairs, decoded(withBlanks(nameOf(pair))), decoded(withBlanks(valueOf(pair))));
    return pairs;
}

Pairs fuzz::pairsOfCookie(const std::string& text) {
    Pairs pairs;
    for (const std::string& piece : split(text, ';')) {
        const std::string pair = trimmed(piece);
        add(pairs, decoded(nameOf(pair)), decoded(unquoted(valueOf(pair))));
    }
    return pairs;
}

// Looks up the first and the last names only: each look-up takes time linear in the list.
void fuzz::requireSame(CGI_varlist* list, const Pairs& expected) {
    constexpr std::size_t kLookedUp = 8;
    require((list != nullptr ? list->size() : 0) == expected.size(),
            "the list has as many values as the model");
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (i < kLookedUp || i + kLookedUp >= expected.size())
            requireValues(list, expected, expected[i].first);
}
