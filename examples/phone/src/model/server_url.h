// The address of a provisioning server.
#ifndef MODEL_SERVER_URL_H
#define MODEL_SERVER_URL_H

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

constexpr std::size_t kMaxServerUrl = 255;

// Returns `text` with scheme and host in lower case; empty if it is no URL of a server. Such a URL
// has the scheme http, https or tftp, a host (IPv6 addresses in brackets), and optionally a port
// and a path. It has neither user name and password, which would be shown, logged and exported,
// nor a query or fragment.
std::string canonicalServerUrl(std::string_view text);

// Returns `text` without what may be a user name and password: all that is between the scheme and
// the last "@". `text` need not be a URL.
std::string withoutCredentials(std::string_view text);

} // namespace phone

#endif
