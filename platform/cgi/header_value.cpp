#include "header_value.h"

#include "base/ascii.h"

#include <algorithm>
#include <cassert>

namespace {

bool isBlank(char character) {
    return character == ' ' || character == '\t';
}

void skipBlanks(std::string_view& rest) {
    while (!rest.empty() && isBlank(rest.front()))
        rest.remove_prefix(1);
}

// Moves a quoted text from the front of `rest` to `value`. Returns false when the closing quote is
// missing.
bool takeQuoted(std::string_view& rest, std::string& value) {
    for (std::size_t at = 1; at < rest.size(); ++at) {
        const char next = at + 1 < rest.size() ? rest[at + 1] : '\0';
        if (rest[at] == '"') {
            rest.remove_prefix(at + 1);
            return true;
        }
        if (rest[at] == '\\' && (next == '"' || next == '\\'))
            ++at;
        value += rest[at];
    }
    return false;
}

// Moves an unquoted value from the front of `rest` to `value`. It ends at the next ";": clients
// leave out quotes that RFC 2045 requires.
void takeUnquoted(std::string_view& rest, std::string& value) {
    const std::string_view text = rest.substr(0, rest.find(';'));
    value = cgi::withoutBlanksAround(text);
    rest.remove_prefix(text.size());
}

// Moves `; name=value` from the front of `rest`, which must not be empty, to `name` and `value`;
// the name is empty for a ";" alone. Returns false when `rest` begins with something else.
bool takeParameter(std::string_view& rest, std::string_view& name, std::string& value) {
    assert(!rest.empty());
    if (rest.front() != ';')
        return false;
    rest.remove_prefix(1);
    skipBlanks(rest);
    const std::size_t end = std::min(rest.find_first_of("=;"), rest.size());
    name = cgi::withoutBlanksAround(rest.substr(0, end));
    rest.remove_prefix(end);
    if (rest.empty() || rest.front() == ';')
        return name.empty();
    rest.remove_prefix(1);
    skipBlanks(rest);
    const bool quoted = !rest.empty() && rest.front() == '"';
    if (quoted && !takeQuoted(rest, value))
        return false;
    if (!quoted)
        takeUnquoted(rest, value);
    skipBlanks(rest);
    return !name.empty();
}

// Keeps the value of a wanted parameter. Returns false when there is one already.
bool keepWanted(std::string_view name, std::string value,
                std::initializer_list<cgi::WantedParameter> wanted) {
    for (const cgi::WantedParameter& parameter : wanted) {
        if (!base::equalsIgnoringCase(name, parameter.name))
            continue;
        if (parameter.value->has_value())
            return false;
        *parameter.value = std::move(value);
        return true;
    }
    return true;
}

} // namespace

std::string_view cgi::withoutBlanksAround(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view cgi::headerType(std::string_view header) {
    return withoutBlanksAround(header.substr(0, header.find(';')));
}

bool cgi::readParameters(std::string_view header, std::initializer_list<WantedParameter> wanted) {
    std::string_view rest = header.substr(std::min(header.find(';'), header.size()));
    while (!rest.empty()) {
        std::string_view name;
        std::string value;
        if (!takeParameter(rest, name, value) || !keepWanted(name, std::move(value), wanted))
            return false;
    }
    return true;
}
