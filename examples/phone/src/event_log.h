// The events that reached the phone last.
#ifndef EVENT_LOG_H
#define EVENT_LOG_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct LoggedEvent {
    std::string name;
    std::string value;
    std::string remoteAddress;
    std::time_t time;
    bool followed; // whether the phone did what it says
};

// As "2026-11-21 13:05:00", in the phone's time zone.
std::string localTimeText(std::time_t time);

// Any thread, at any time.
class EventLog {
public:
    // With one more the oldest is dropped.
    static constexpr std::size_t kMaxEvents = 20;
    // Bytes that are kept of a text; strangers send events. The cut is never inside a UTF-8
    // character.
    static constexpr std::size_t kMaxText = 64;

    void add(LoggedEvent event);

    // The newest first.
    std::vector<LoggedEvent> recent() const;

    // All there ever were.
    std::uint64_t count() const;

private:
    mutable std::mutex m_lock;
    std::deque<LoggedEvent> m_events; // the oldest first; guarded by m_lock
    std::uint64_t m_count = 0;        // guarded by m_lock
};

} // namespace phone

#endif
