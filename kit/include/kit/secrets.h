// Generating and comparing secrets, such as tokens.
#ifndef KIT_SECRETS_H
#define KIT_SECRETS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/random.h>
#include <sys/types.h>

namespace kit {

// Returns whether the two are equal. Takes a time that depends on their lengths only, which
// prevents timing attacks.
inline bool equalSecrets(std::string_view given, std::string_view expected) {
    bool differ = given.size() != expected.size();
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const char other = i < given.size() ? given[i] : '\0';
        differ |= (expected[i] ^ other) != 0;
    }
    return !differ;
}

// Returns 32 hexadecimal digits made of 128 random bits of the system, see getrandom(2), for tokens
// that cannot be guessed; empty if the system has no random bytes.
inline std::string randomToken() {
    constexpr const char* kDigits = "0123456789abcdef";
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        return {};
    }
    std::string token;
    token.reserve(2 * sizeof bytes);
    for (unsigned char byte : bytes) {
        token += kDigits[byte >> 4];
        token += kDigits[byte & 15];
    }
    return token;
}

// Returns whether `text` has the form of randomToken()'s results.
inline bool isRandomToken(std::string_view text) {
    return text.size() == 32 &&
           text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

} // namespace kit

#endif
