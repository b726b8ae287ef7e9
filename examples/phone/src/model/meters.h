// Measurements of the phone itself.
#ifndef MODEL_METERS_H
#define MODEL_METERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// All functions are thread-safe. A value that the system does not provide is 0 or omitted.

struct Memory {
    std::uint64_t total = 0; // bytes
    std::uint64_t available = 0;
};
Memory memory();
// Reads a text in the format of /proc/meminfo.
Memory readMemory(std::string_view text);

// Bytes over all interfaces except loopback, since they came up.
struct Traffic {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
};
Traffic traffic();
// Reads a text in the format of /proc/net/dev.
Traffic readTraffic(std::string_view text);

// A network interface that is up. An address is empty if it has none.
struct NetworkInterface {
    std::string name;
    std::string address;
    std::string hardwareAddress;
};

// A phone has two or three.
constexpr std::size_t kMaxInterfaces = 8;

// Returns the current interfaces except loopback, at most kMaxInterfaces.
std::vector<NetworkInterface> networkInterfaces();

} // namespace phone

#endif
