// What the phone measures about itself.
#ifndef MODEL_METERS_H
#define MODEL_METERS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// Any thread may call any of these. What the system does not tell is 0 or left out.

struct Memory {
    std::uint64_t total = 0; // bytes
    std::uint64_t available = 0;
};
Memory memory();
// Of a text as /proc/meminfo has it.
Memory readMemory(std::string_view text);

// Bytes over all interfaces but the loopback, since they came up.
struct Traffic {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
};
Traffic traffic();
// Of a text as /proc/net/dev has it.
Traffic readTraffic(std::string_view text);

// A network interface that is up; an address that it does not have is empty.
struct NetworkInterface {
    std::string name;
    std::string address;
    std::string hardwareAddress;
};

// A phone has two or three.
constexpr std::size_t kMaxInterfaces = 8;

// The interfaces as they are now, the loopback left out, kMaxInterfaces at most.
std::vector<NetworkInterface> networkInterfaces();

// A time, which must not be negative, as "2 d 03:04:05".
std::string upTimeText(std::chrono::seconds time);

} // namespace phone

#endif
