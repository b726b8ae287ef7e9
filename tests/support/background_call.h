// Makes a call on its own thread, for tests that check whether the call waits for a lock.
#ifndef BACKGROUND_CALL_H
#define BACKGROUND_CALL_H

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

// `call` must sleep nowhere except in the locks under test.
class BackgroundCall {
public:
    explicit BackgroundCall(std::function<void()> call)
        : m_thread([this, run = std::move(call)] {
              m_threadId = ::gettid();
              run();
              m_ended = true;
          }) {}
    BackgroundCall(const BackgroundCall&) = delete;
    BackgroundCall& operator=(const BackgroundCall&) = delete;
    // Waits for the end of the call: the locks that it needs must be free.
    ~BackgroundCall() { m_thread.join(); }

    // Returns whether the call waits for a lock, as soon as it waits or has ended.
    bool waits() const {
        while (!m_ended) {
            const std::string switches = switchesWhileAsleep();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (!switches.empty() && switches == switchesWhileAsleep())
                return !m_ended;
        }
        return false;
    }

    bool ended() const { return m_ended; }

private:
    // Returns how often the thread has gone to sleep so far; empty if it is awake.
    std::string switchesWhileAsleep() const {
        std::ifstream status("/proc/self/task/" + std::to_string(m_threadId) + "/status");
        bool asleep = false;
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("State:", 0) == 0)
                asleep = line.find("(sleeping)") != std::string::npos;
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0)
                return asleep ? line : std::string();
        }
        return std::string();
    }

    std::atomic<pid_t> m_threadId{0};
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

#endif
