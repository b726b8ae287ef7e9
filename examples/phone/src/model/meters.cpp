#include "model/meters.h"

#include "model/atomic_file.h"
#include "model/trimmed.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

namespace phone {
namespace {

constexpr std::size_t kMaxProcBytes = 64 * 1024;

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

std::string_view takeWord(std::string_view& line) {
    line = trimmed(line);
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(end);
    return word;
}

std::uint64_t takeNumber(std::string_view& line) {
    const std::string_view word = takeWord(line);
    std::uint64_t number = 0;
    std::from_chars(word.data(), word.data() + word.size(), number);
    return number;
}

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

void addAddress(std::vector<NetworkInterface>& interfaces, const ifaddrs& entry) {
    const bool shown = (entry.ifa_flags & IFF_UP) && !(entry.ifa_flags & IFF_LOOPBACK);
    if (!shown || entry.ifa_addr == nullptr) {
        return;
    }
    if (entry.ifa_addr->sa_family == AF_INET) {
        interfaceNamed(interfaces, entry.ifa_name).address = ipv4Text(entry.ifa_addr);
    } else if (entry.ifa_addr->sa_family == AF_PACKET) {
        interfaceNamed(interfaces, entry.ifa_name).hardwareAddress = hardwareText(entry.ifa_addr);
    }
}

} // namespace

Memory memory() {
    return readMemory(readFile("/proc/meminfo", kMaxProcBytes).value_or(""));
}

Memory readMemory(std::string_view text) {
    Memory memory;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        const std::string_view name = takeWord(line);
        if (name == "MemTotal:") {
            memory.total = takeNumber(line) * 1024;
        } else if (name == "MemAvailable:") {
            memory.available = takeNumber(line) * 1024;
        }
    }
    return memory;
}

Traffic traffic() {
    return readTraffic(readFile("/proc/net/dev", kMaxProcBytes).value_or(""));
}

Traffic readTraffic(std::string_view text) {
    // Each line has eight counters for received data, then those for sent data; bytes come first.
    constexpr int kOtherReceived = 7;
    Traffic traffic;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || trimmed(line.substr(0, colon)) == "lo") {
            continue;
        }
        line.remove_prefix(colon + 1);
        traffic.received += takeNumber(line);
        for (int i = 0; i < kOtherReceived; ++i) {
            takeNumber(line);
        }
        traffic.sent += takeNumber(line);
    }
    return traffic;
}

std::vector<NetworkInterface> networkInterfaces() {
    std::vector<NetworkInterface> interfaces;
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        return interfaces;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, &freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        addAddress(interfaces, *entry);
    }
    if (interfaces.size() > kMaxInterfaces) {
        interfaces.resize(kMaxInterfaces);
    }
    return interfaces;
}

} // namespace phone
