// Cookies that a plug-in sets.
#ifndef KIT_COOKIE_H
#define KIT_COOKIE_H

#include "base/ascii.h"

#include <optional>
#include <string>
#include <string_view>

namespace kit {

// A cookie (RFC 6265, section 4.1). The defaults protect it from scripts (XSS) and from being sent
// with forms of other sites (CSRF).
struct Cookie {
    // Whether the browser sends the cookie with requests that another site causes: with none of
    // them (Strict), or only when the user follows a link (Lax).
    enum class SameSite { Strict, Lax };

    std::string name;                  // a token, like the name of a header
    std::string value;                 // no blank, quote, comma, semicolon or backslash
    std::string path = "/";            // sent with requests for this path and those below it
    std::optional<long> maxAge{};      // seconds; 0 deletes it; unset: until the browser is closed
    bool httpOnly = true;              // hidden from scripts
    bool secure = false;               // sent over HTTPS only
    SameSite sameSite = SameSite::Lax; // whether requests that other sites cause bring it
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

} // namespace internal

// Returns the text of the cookie's Set-Cookie header, or nothing if its name, value or path has a
// character that is not allowed. Percent-encode a value with other characters: the container
// decodes it when the browser sends it back.
inline std::optional<std::string> setCookieText(const Cookie& cookie) {
    if (!internal::isToken(cookie.name) || !internal::isCookieText(cookie.value, "") ||
        !internal::isCookieText(cookie.path, " ,")) {
        return std::nullopt;
    }
    std::string text = cookie.name + "=" + cookie.value + "; Path=" + cookie.path;
    if (cookie.maxAge) {
        text += "; Max-Age=" + std::to_string(*cookie.maxAge);
    }
    text += cookie.httpOnly ? "; HttpOnly" : "";
    text += cookie.secure ? "; Secure" : "";
    text += cookie.sameSite == Cookie::SameSite::Strict ? "; SameSite=Strict" : "; SameSite=Lax";
    return text;
}

} // namespace kit

#endif
