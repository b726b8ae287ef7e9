// A listener that admits clients of the local network only.
#ifndef LOCAL_NETWORK_H
#define LOCAL_NETWORK_H

#include <kit/plugin.h>
#include <web_debug.h>

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <string>

// Returns whether the address is this device's own, private or link-local (RFC 1918, 3927 and
// 4193).
inline bool isLocal(const std::string& address) {
    in_addr v4{};
    if (inet_pton(AF_INET, address.c_str(), &v4) == 1) {
        const std::uint32_t bits = ntohl(v4.s_addr);
        return bits >> 24 == 127 || bits >> 24 == 10 || bits >> 20 == 0xAC1 ||
               bits >> 16 == 0xC0A8 || bits >> 16 == 0xA9FE;
    }
    in6_addr v6{};
    return inet_pton(AF_INET6, address.c_str(), &v6) == 1 &&
           (IN6_IS_ADDR_LOOPBACK(&v6) || IN6_IS_ADDR_LINKLOCAL(&v6) ||
            (v6.s6_addr[0] & 0xFE) == 0xFC);
}

class LocalNetworkListener final : public kit::Listener {
    bool admit(kit::Request& request, kit::Response& response) override {
        const std::string address(request.remoteAddress());
        if (isLocal(address)) {
            return true;
        }
        WebDebug::getInstance()->warn("Refused a client outside the local network: %s",
                                      address.c_str());
        response.status(403).text("This page is for the local network only.\n");
        return false;
    }
};

#endif
