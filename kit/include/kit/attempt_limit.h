// Rate limiting for password attempts.
#ifndef KIT_ATTEMPT_LIMIT_H
#define KIT_ATTEMPT_LIMIT_H

#include "kit/clock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <deque>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <unordered_map>

namespace kit {

// Limits how often passwords may be tried, by each client address and by all together.
//   By address  the first attempts are free; from then on each failed attempt makes the address
//               wait, and each wait is twice as long as the one before.
//   In all      after kFreeInAll failed attempts, one is allowed every kSecondsInAll seconds,
//               whatever addresses they come from. Addresses that gave a right password lately are
//               exempt, so that guessing from elsewhere does not lock their users out.
//   Addresses   IPv6 addresses with the same first 64 bits count as one client, because a client
//               can choose the other bits freely (RFC 4291, section 2.5.4).
//   Threads     any, at any time.
class AttemptLimit {
public:
    static constexpr int kFreeAttempts = 3; // the last of these causes the first wait
    static constexpr long kFirstWait = 2;   // seconds
    static constexpr long kMaxWait = 300;   // seconds
    // To make room for one more, the address whose wait ends first is forgotten.
    static constexpr std::size_t kMaxAddresses = 256;
    static constexpr long kFreeInAll = 30;
    static constexpr long kSecondsInAll = 2;
    // The addresses of the last right passwords that are remembered.
    static constexpr std::size_t kMaxKnown = 16;

    // Returns 0 if the address may try now, or the seconds that it has to wait. Call before
    // checking the password. An attempt that is allowed counts as failed at once, so that parallel
    // attempts are limited too; call succeeded() if the password was right, or withdraw() if it
    // could not be checked.
    long begin(const std::string& address) {
        const long now = clockSeconds();
        const std::string client = clientOf(address);
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_clients.find(client);
        if (found != m_clients.end() && now < found->second.waitUntil) {
            return found->second.waitUntil - now;
        }
        if (const long wait = isKnown(client) ? 0 : waitInAll(now)) {
            return wait;
        }
        if (found == m_clients.end()) {
            makeRoom();
        }
        count(m_clients[client], now);
        m_allPaidUntil = std::max(m_allPaidUntil, now) + kSecondsInAll;
        return 0;
    }

    // Forgets the failed attempts of the address: it has its free attempts again.
    void succeeded(const std::string& address) {
        const std::string client = clientOf(address);
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_clients.erase(client) != 0) {
            m_allPaidUntil -= kSecondsInAll;
        }
        if (!isKnown(client)) {
            m_known.push_back(client);
        }
        if (m_known.size() > kMaxKnown) {
            m_known.pop_front();
        }
    }

    // Takes the last attempt of the address back: it counts as not made.
    void withdraw(const std::string& address) {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_clients.find(clientOf(address));
        if (found == m_clients.end()) {
            return;
        }
        m_allPaidUntil -= kSecondsInAll;
        Client& client = found->second;
        client.lastWait = --client.attempts < kFreeAttempts ? 0 : client.lastWait / 2;
        client.waitUntil = clockSeconds();
    }

    // Returns how many addresses with failed attempts are remembered.
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

    // Returns the seconds until the next attempt of an unknown address is allowed.
    long waitInAll(long now) const {
        return std::max(m_allPaidUntil - now - kSecondsInAll * (kFreeInAll - 1), 0L);
    }

    bool isKnown(const std::string& client) const {
        return std::find(m_known.begin(), m_known.end(), client) != m_known.end();
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
    // Guarded by m_lock.
    std::unordered_map<std::string, Client> m_clients;
    std::deque<std::string> m_known;
    // Each failed attempt moves this kSecondsInAll seconds further into the future.
    long m_allPaidUntil = clockSeconds();
};

} // namespace kit

#endif
