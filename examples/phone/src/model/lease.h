// The lease of the phone's address. No network is connected: what a DHCP server would have sent.
#ifndef MODEL_LEASE_H
#define MODEL_LEASE_H

#include <chrono>

namespace phone {

struct Lease {
    const char* address;
    const char* netmask;
    const char* gateway;
    const char* dns;
    const char* server;
    std::chrono::seconds remaining;
};

// Returns the lease of a phone that has been running for `upTime`. A lease is for a day and is
// renewed after half of that (RFC 2131, section 4.4.5); the addresses are those for examples
// (RFC 5737).
constexpr Lease leaseAfter(std::chrono::seconds upTime) {
    constexpr std::chrono::hours kLength{24};
    return {"192.0.2.20", "255.255.255.0", "192.0.2.1",
            "192.0.2.2",  "192.0.2.3",     kLength - upTime % (kLength / 2)};
}

} // namespace phone

#endif
