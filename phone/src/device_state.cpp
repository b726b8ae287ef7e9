#include "device_state.h"

#include "secrets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <ctime>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

namespace phone {
namespace {

NetworkInterface& interfaceNamed(std::vector<NetworkInterface>& interfaces, const char* name) {
    const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                    [name](const auto& known) { return known.name == name; });
    if (found != interfaces.end()) {
        return *found;
    }
    interfaces.push_back({name, "", ""});
    return interfaces.back();
}

std::string ipv4Text(const sockaddr* address) {
    char text[INET_ADDRSTRLEN] = "";
    const auto* internet = reinterpret_cast<const sockaddr_in*>(address);
    inet_ntop(AF_INET, &internet->sin_addr, text, sizeof text);
    return text;
}

std::string hardwareText(const sockaddr* address) {
    const auto* link = reinterpret_cast<const sockaddr_ll*>(address);
    std::string text;
    for (int i = 0; i < link->sll_halen && i < 8; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, i == 0 ? "%02x" : ":%02x", link->sll_addr[i]);
        text += digits;
    }
    return text;
}

} // namespace

const char* DeviceState::firmware() const {
    return PHONE_FIRMWARE;
}

const WebUser* DeviceState::authenticate(std::string_view name, std::string_view password) const {
    const bool nameFits = equalSecrets(name, m_user.name);
    const bool passwordFits = equalSecrets(password, m_user.password);
    return nameFits && passwordFits ? &m_user : nullptr;
}

std::vector<NetworkInterface> DeviceState::networkInterfaces() const {
    std::vector<NetworkInterface> interfaces;
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        return interfaces;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, &freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const bool shown = (entry->ifa_flags & IFF_UP) && !(entry->ifa_flags & IFF_LOOPBACK);
        if (!shown || entry->ifa_addr == nullptr) {
            continue;
        }
        if (entry->ifa_addr->sa_family == AF_INET) {
            interfaceNamed(interfaces, entry->ifa_name).address = ipv4Text(entry->ifa_addr);
        } else if (entry->ifa_addr->sa_family == AF_PACKET) {
            interfaceNamed(interfaces, entry->ifa_name).hardwareAddress =
                hardwareText(entry->ifa_addr);
        }
    }
    if (interfaces.size() > kMaxInterfaces) {
        interfaces.resize(kMaxInterfaces);
    }
    return interfaces;
}

std::string DeviceState::upTime() const {
    timespec sinceBoot{};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    return durationText(sinceBoot.tv_sec);
}

std::string durationText(long seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%ld d %02ld:%02ld:%02ld", seconds / 86400,
                  seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
    return text;
}

} // namespace phone
