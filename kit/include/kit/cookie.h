// A cookie of a plug-in's own.
#ifndef KIT_COOKIE_H
#define KIT_COOKIE_H

#include <optional>
#include <string>
#include <string_view>

namespace kit {

// RFC 6265, section 4.1, and SameSite as browsers know it.
struct Cookie {
    // Of the requests that other sites cause, none brings the cookie, or those of links alone.
    enum class SameSite { strict, lax };

    std::string name;                  // a token, as the name of a header is
    std::string value;                 // no blank, quote, comma, semicolon or backslash
    std::string path = "/";            // the addresses below it get the cookie
    std::optional<long> maxAge{};      // seconds; 0 deletes it; without, it ends with the browser
    bool httpOnly = true;              // no script sees it
    bool secure = false;               // sent over HTTPS only
    SameSite sameSite = SameSite::lax; // what of other sites' requests brings it
};

namespace internal {

// RFC 7230, section 3.2.6: a header's name, and a cookie's.
inline bool isToken(std::string_view text) {
    constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    for (char c : text) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!letter && !(c >= '0' && c <= '9') && kMarks.find(c) == kMarks.npos) {
            return false;
        }
    }
    return !text.empty();
}

// The characters that a cookie's value may have; `extra` as well.
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

// The value of its Set-Cookie header; nothing when a text of it cannot stand there. A value of
// other characters is the caller's to encode: the container percent-decodes what comes back.
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
    text += cookie.sameSite == Cookie::SameSite::strict ? "; SameSite=Strict" : "; SameSite=Lax";
    return text;
}

} // namespace kit

#endif
