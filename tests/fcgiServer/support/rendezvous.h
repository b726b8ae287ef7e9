// A place where threads wait for each other.
#ifndef RENDEZVOUS_H
#define RENDEZVOUS_H

#include <chrono>
#include <condition_variable>
#include <mutex>

class Rendezvous {
public:
    explicit Rendezvous(int expected) : m_missing(expected) {}

    // Waits for all others. Returns false if one has not arrived within five seconds.
    bool arrive() {
        std::unique_lock<std::mutex> lock(m_lock);
        --m_missing;
        m_arrival.notify_all();
        return m_arrival.wait_for(lock, std::chrono::seconds(5), [this] { return m_missing <= 0; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_arrival;
    int m_missing; // guarded by m_lock
};

#endif
