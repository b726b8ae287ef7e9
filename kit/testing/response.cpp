#include <kit/testing/response.h>

#include "base/ascii.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>

namespace kit::testing {
namespace {

constexpr int kDefaultStatus = 200;
constexpr int kFound = 302;

std::string trimmed(const std::string& text) {
    const char blanks[] = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Returns the two parts of a text beside its first separator; the second is empty if there is none.
NamedValue split(const std::string& text, char separator) {
    const std::size_t place = text.find(separator);
    if (place == std::string::npos)
        return {trimmed(text), ""};
    return {trimmed(text.substr(0, place)), trimmed(text.substr(place + 1))};
}

// Removes the first line from `rest` and returns it without its line end.
std::string takeHeaderLine(std::string& rest) {
    const std::size_t end = rest.find('\n');
    if (end == std::string::npos)
        throw std::runtime_error("the response has no empty line after its headers: " + rest);
    std::string line = trimmed(rest.substr(0, end));
    rest.erase(0, end + 1);
    return line;
}

NamedValue headerOf(const std::string& line) {
    if (line.find(':') == std::string::npos)
        throw std::runtime_error("a header line of the response has no colon: " + line);
    return split(line, ':');
}

int statusOf(const std::string& header) {
    const std::string number = header.substr(0, header.find(' '));
    const bool digits = std::all_of(number.begin(), number.end(), base::isAsciiDigit);
    if (number.size() != 3 || !digits)
        throw std::runtime_error("the status of the response is not a number of three digits: " +
                                 header);
    return std::stoi(number);
}

Cookie cookieOf(const std::string& header) {
    const std::size_t end = header.find(';');
    const NamedValue pair = split(header.substr(0, end), '=');
    Cookie cookie{pair.name, pair.value, {}};
    for (std::size_t next = end; next != std::string::npos;) {
        const std::size_t begin = next + 1;
        next = header.find(';', begin);
        cookie.attributes.push_back(split(header.substr(begin, next - begin), '='));
    }
    return cookie;
}

// Browsers ignore a cookie without a name or without "=" (RFC 6265, section 5.2).
bool setsCookie(const NamedValue& header) {
    const std::size_t sign = header.value.find('=');
    return base::equalsIgnoringCase(header.name, "Set-Cookie") && sign < header.value.find(';') &&
           !trimmed(header.value.substr(0, sign)).empty();
}

} // namespace

std::optional<std::string> Cookie::attribute(const std::string& wanted) const {
    const auto found =
        std::find_if(attributes.rbegin(), attributes.rend(), [&](const NamedValue& attribute) {
            return base::equalsIgnoringCase(attribute.name, wanted);
        });
    return found != attributes.rend() ? std::optional(found->value) : std::nullopt;
}

Response::Response(const std::string& written) : status(kDefaultStatus), body(written) {
    for (std::string line = takeHeaderLine(body); !line.empty(); line = takeHeaderLine(body))
        headers.push_back(headerOf(line));
    if (const auto code = header("Status"))
        status = statusOf(*code);
    else if (header("Location"))
        status = kFound;
}

std::optional<std::string> Response::header(const std::string& wanted) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const NamedValue& header) {
        return base::equalsIgnoringCase(header.name, wanted);
    });
    return found != headers.end() ? std::optional(found->value) : std::nullopt;
}

std::vector<Cookie> Response::cookies() const {
    std::vector<Cookie> result;
    for (const NamedValue& header : headers)
        if (setsCookie(header))
            result.push_back(cookieOf(header.value));
    return result;
}

std::optional<Cookie> Response::cookie(const std::string& wanted) const {
    std::optional<Cookie> result;
    for (Cookie& cookie : cookies())
        if (cookie.name == wanted)
            result = std::move(cookie);
    return result;
}

} // namespace kit::testing
