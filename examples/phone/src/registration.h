// Whether an account is registered.
#ifndef REGISTRATION_H
#define REGISTRATION_H

#include "model/settings.h"

#include <string_view>

namespace phone {

// Returns "off", "registered" or "failed". No registrar is contacted: a server that cannot exist
// (.invalid, RFC 2606, section 2) stands for one that does not answer.
inline const char* registrationOf(const Account& account) {
    constexpr std::string_view kNoServer = ".invalid";
    if (!account.enabled) {
        return "off";
    }
    const std::string_view server = account.server;
    const bool unreachable = server.size() >= kNoServer.size() &&
                             server.substr(server.size() - kNoServer.size()) == kNoServer;
    return unreachable ? "failed" : "registered";
}

} // namespace phone

#endif
