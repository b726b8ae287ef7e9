#include <kit/testing/response.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <stdexcept>

namespace kit::testing {
namespace {

constexpr int kOk = 200;
constexpr int kFound = 302;

std::string trimmed(const std::string& text) {
    const char blanks[] = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool equalInAnyCase(const std::string& one, const std::string& other) {
    const auto same = [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    };
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), same);
}

// The parts of a text on both sides of a separator; the second is empty without one.
NamedValue split(const std::string& text, char separator) {
    const std::size_t place = text.find(separator);
    if (place == std::string::npos)
        return {trimmed(text), ""};
    return {trimmed(text.substr(0, place)), trimmed(text.substr(place + 1))};
}

// Takes the first line, without its end, off `rest`.
std::string takeHeaderLine(std::string& rest) {
    const std::size_t end = rest.find('\n');
    if (end == std::string::npos)
        throw std::runtime_error("the response has no empty line behind its headers: " + rest);
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
    const bool digits = std::all_of(number.begin(), number.end(),
                                    [](unsigned char c) { return std::isdigit(c) != 0; });
    if (number.size() != 3 || !digits)
        throw std::runtime_error("the status of the response is not one: " + header);
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

// A pair without a name or without "=" is none (RFC 6265, section 5.2).
bool setsCookie(const NamedValue& header) {
    const std::size_t sign = header.value.find('=');
    return equalInAnyCase(header.name, "Set-Cookie") && sign < header.value.find(';') &&
           !trimmed(header.value.substr(0, sign)).empty();
}

} // namespace

std::optional<std::string> Cookie::attribute(const std::string& wanted) const {
    const auto found =
        std::find_if(attributes.rbegin(), attributes.rend(), [&](const NamedValue& attribute) {
            return equalInAnyCase(attribute.name, wanted);
        });
    return found != attributes.rend() ? std::optional(found->value) : std::nullopt;
}

Response::Response(const std::string& written) : status(kOk), body(written) {
    for (std::string line = takeHeaderLine(body); !line.empty(); line = takeHeaderLine(body))
        headers.push_back(headerOf(line));
    if (const auto code = header("Status"))
        status = statusOf(*code);
    else if (header("Location"))
        status = kFound;
}

std::optional<std::string> Response::header(const std::string& wanted) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const NamedValue& header) {
        return equalInAnyCase(header.name, wanted);
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
