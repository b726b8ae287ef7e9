// Cookies that a plug-in sets.
#ifndef KIT_COOKIE_H
#define KIT_COOKIE_H

#include "base/ascii.h"
#include "kit/http_date.h"

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kit {

// A cookie (RFC 6265, section 4.1). The defaults protect it from scripts (XSS) and from being sent
// with forms of other sites (CSRF).
struct Cookie {
    // Whether the browser sends the cookie with requests that another site causes: with none of
    // them (Strict), only when the user follows a link (Lax), or with all, which lets other sites
    // act for the user, and which browsers allow over HTTPS only (None).
    enum class SameSite { Strict, Lax, None };

    std::string name;                  // a token, like the name of a header
    std::string value;                 // no blank, quote, comma, semicolon or backslash
    std::string path = "/";            // sent with requests for this path and those below it
    std::optional<long> maxAge{};      // seconds; 0 deletes it; unset: until the browser is closed
    bool httpOnly = true;              // hidden from scripts
    bool secure = false;               // sent over HTTPS only
    SameSite sameSite = SameSite::Lax; // whether requests that other sites cause bring it
    // The host to whose subdomains the browser sends the cookie, too; empty: only to this host.
    std::string domain{};
    // When it ends, for a date instead of a number of seconds. Browsers with a wrong clock delete
    // it too early or too late; maxAge, if set, takes precedence.
    std::optional<std::time_t> expires{};
};

namespace internal {

// Returns whether `text` can be the name of a header or of a cookie (RFC 7230, section 3.2.6).
inline bool isToken(std::string_view text) {
    constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    for (char c : text) {
        if (!base::isAsciiLetter(c) && !base::isAsciiDigit(c) && kMarks.find(c) == kMarks.npos) {
            return false;
        }
    }
    return !text.empty();
}

// Returns whether `text` has only characters that a cookie's value may have, or those in `extra`.
inline bool isCookieText(std::string_view text, std::string_view extra) {
    for (char c : text) {
        const bool plain = c > 0x20 && c < 0x7F && c != '"' && c != ',' && c != ';' && c != '\\';
        if (!plain && extra.find(c) == extra.npos) {
            return false;
        }
    }
    return true;
}

// Returns whether browsers accept the attributes together: SameSite=None and names with a prefix
// require others (RFC 6265bis, sections 4.1.3 and 5.7).
inline bool areAttributesAllowed(const Cookie& cookie) {
    const auto hasPrefix = [&](std::string_view prefix) {
        return base::equalsIgnoringCase(std::string_view(cookie.name).substr(0, prefix.size()),
                                        prefix);
    };
    const bool isForHost = hasPrefix("__Host-");
    const bool mustBeSecure =
        isForHost || hasPrefix("__Secure-") || cookie.sameSite == Cookie::SameSite::None;
    return (cookie.secure || !mustBeSecure) &&
           (!isForHost || (cookie.path == "/" && cookie.domain.empty()));
}

// Returns the value of the attribute SameSite.
inline const char* nameOf(Cookie::SameSite sameSite) {
    switch (sameSite) {
    case Cookie::SameSite::Strict:
        return "Strict";
    case Cookie::SameSite::Lax:
        return "Lax";
    case Cookie::SameSite::None:
        return "None";
    }
    return "Strict";
}

} // namespace internal

// Returns the text of the cookie's Set-Cookie header, or nothing if its name, value, path or domain
// has a character that is not allowed, if `expires` has no year of four digits, or if browsers
// would reject it: SameSite::None and names that begin with "__Secure-" or "__Host-" need `secure`,
// and the last one needs the path "/" and no domain. Percent-encode a value with other characters:
// the container decodes it when the browser sends it back.
inline std::optional<std::string> setCookieText(const Cookie& cookie) {
    const std::string expires = cookie.expires ? httpDate(*cookie.expires) : "";
    if (!internal::isToken(cookie.name) || !internal::isCookieText(cookie.value, "") ||
        !internal::isCookieText(cookie.path, " ,") || !internal::isCookieText(cookie.domain, "") ||
        (cookie.expires && expires.empty()) || !internal::areAttributesAllowed(cookie)) {
        return std::nullopt;
    }
    std::string text = cookie.name + "=" + cookie.value + "; Path=" + cookie.path;
    if (cookie.maxAge) {
        text += "; Max-Age=" + std::to_string(*cookie.maxAge);
    }
    text += cookie.expires ? "; Expires=" + expires : "";
    text += cookie.domain.empty() ? "" : "; Domain=" + cookie.domain;
    text += cookie.httpOnly ? "; HttpOnly" : "";
    text += cookie.secure ? "; Secure" : "";
    text += std::string("; SameSite=") + internal::nameOf(cookie.sameSite);
    return text;
}

} // namespace kit

#endif
