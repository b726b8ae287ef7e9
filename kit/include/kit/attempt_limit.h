// Rate limiting for password attempts.
#ifndef KIT_ATTEMPT_LIMIT_H
#define KIT_ATTEMPT_LIMIT_H

#include "kit/clock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <unordered_map>

namespace kit {

// Limits how often one client address may try a password. The first attempts are free; from then on
// each failed attempt makes the address wait, and each wait is twice as long as the one before.
//   Addresses  IPv6 addresses with the same first 64 bits count as one client, because a client
//              can choose the other bits freely (RFC 4291, section 2.5.4).
//   Threads    any, at any time.
class AttemptLimit {
public:
    static constexpr int kFreeAttempts = 3; // the last of these causes the first wait
    static constexpr long kFirstWait = 2;   // seconds
    static constexpr long kMaxWait = 300;   // seconds
    // To make room for one more, the address whose wait ends first is forgotten.
    static constexpr std::size_t kMaxAddresses = 256;

    // Returns 0 if the address may try now, or the seconds that it has to wait. Call before
    // checking the password. An attempt that is allowed counts as failed at once, so that parallel
    // attempts are limited too; call succeeded() if the password was right.
    long begin(const std::string& address) {
        const long now = clockSeconds();
        const std::string client = clientOf(address);
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_clients.find(client);
        if (found == m_clients.end()) {
            makeRoom();
        } else if (now < found->second.waitUntil) {
            return found->second.waitUntil - now;
        }
        count(m_clients[client], now);
        return 0;
    }

    // Forgets the failed attempts of the address: it has its free attempts again.
    void succeeded(const std::string& address) {
        std::lock_guard<std::mutex> guard(m_lock);
        m_clients.erase(clientOf(address));
    }

    // Returns how many addresses are remembered.
    std::size_t size() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_clients.size();
    }

private:
    struct Client {
        int attempts = 0;
        long lastWait = 0;
        long waitUntil = 0;
    };

    static std::string clientOf(const std::string& address) {
        unsigned char bytes[sizeof(in6_addr)];
        return inet_pton(AF_INET6, address.c_str(), bytes) == 1
                   ? "6:" + std::string(reinterpret_cast<const char*>(bytes), sizeof bytes / 2)
                   : address;
    }

    static void count(Client& client, long now) {
        // An address that has been quiet for long gets its free attempts again.
        if (now - client.waitUntil > kMaxWait) {
            client = Client();
        }
        if (++client.attempts >= kFreeAttempts) {
            client.lastWait = std::clamp(2 * client.lastWait, kFirstWait, kMaxWait);
        }
        client.waitUntil = now + client.lastWait;
    }

    void makeRoom() {
        if (m_clients.size() < kMaxAddresses) {
            return;
        }
        m_clients.erase(std::min_element(m_clients.begin(), m_clients.end(),
                                         [](const auto& one, const auto& other) {
                                             return one.second.waitUntil < other.second.waitUntil;
                                         }));
    }

    mutable std::mutex m_lock;
    std::unordered_map<std::string, Client> m_clients; // guarded by m_lock
};

} // namespace kit

#endif
