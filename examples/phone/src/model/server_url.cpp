#include "model/server_url.h"

#include "base/ascii.h"
#include "model/field_reader.h"

#include <algorithm>

namespace phone {
namespace {

constexpr std::string_view kSchemeEnd = "://";

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), base::asciiLower);
    return lower;
}

bool isScheme(std::string_view text) {
    return text == "http" || text == "https" || text == "tftp";
}

bool isPort(std::string_view text) {
    constexpr std::size_t kMaxDigits = 5;
    if (text.empty() || text.size() > kMaxDigits ||
        !std::all_of(text.begin(), text.end(), base::isAsciiDigit)) {
        return false;
    }
    const int port = std::stoi(std::string(text));
    return port >= 1 && port <= 65535;
}

bool isHexDigit(char c) {
    return std::string_view("0123456789ABCDEFabcdef").find(c) != std::string_view::npos;
}

// Returns whether `text` is a path (RFC 3986, section 3.3) without "@".
bool isPath(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%') {
            if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
                return false;
            }
        } else if (!base::isAsciiLetter(c) && !base::isAsciiDigit(c) &&
                   std::string_view("/-._~!$&'()*+,;=:").find(c) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

// Returns whether `text` is a host, with or without a port.
bool isAuthority(std::string_view text) {
    const bool isBracketed = !text.empty() && text.front() == '[';
    const std::size_t end = isBracketed ? text.find(']') : text.find(':');
    if (isBracketed && end == text.npos) {
        return false;
    }
    const std::string_view host =
        isBracketed ? text.substr(1, end - 1) : text.substr(0, std::min(end, text.size()));
    // Of the two kinds of address only IPv6 contains colons.
    const bool isHostKind = isBracketed == (host.find(':') != host.npos);
    std::string_view rest = text.substr(std::min(text.size(), end + (isBracketed ? 1 : 0)));
    if (!isHostKind || !isHost(host)) {
        return false;
    }
    return rest.empty() || (rest.front() == ':' && isPort(rest.substr(1)));
}

} // namespace

std::string canonicalServerUrl(std::string_view text) {
    const std::size_t schemeEnd = text.find(kSchemeEnd);
    if (text.size() > kMaxServerUrl || schemeEnd == text.npos) {
        return {};
    }
    const std::size_t begin = schemeEnd + kSchemeEnd.size();
    const std::size_t end = std::min(text.find('/', begin), text.size());
    const std::string scheme = lowerCase(text.substr(0, schemeEnd));
    const std::string_view authority = text.substr(begin, end - begin);
    const std::string_view path = text.substr(end);
    if (!isScheme(scheme) || !isAuthority(authority) || !isPath(path)) {
        return {};
    }
    return scheme + std::string(kSchemeEnd) + lowerCase(authority) + std::string(path);
}

std::string withoutCredentials(std::string_view text) {
    const std::size_t at = text.rfind('@');
    if (at == text.npos) {
        return std::string(text);
    }
    const std::size_t schemeEnd = text.find(kSchemeEnd);
    const bool hasScheme = schemeEnd < at && isScheme(lowerCase(text.substr(0, schemeEnd)));
    const std::size_t begin = hasScheme ? schemeEnd + kSchemeEnd.size() : 0;
    return std::string(text.substr(0, begin)) + std::string(text.substr(at + 1));
}

} // namespace phone
