// The most recent events that reached the phone.
#ifndef EVENT_LOG_H
#define EVENT_LOG_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// What became of an event.
enum class EventResult { done, notAllowed, notPossible };

// Returns "done", "notAllowed" or "notPossible". Never null.
const char* nameOf(EventResult result);

struct LoggedEvent {
    std::string name;
    std::string value;
    std::string remoteAddress;
    std::time_t time;
    std::chrono::seconds moment; // on the clock systemClock(), which is never set
    EventResult result;
};

// Returns the time as "2026-11-21 13:05:00", in the phone's time zone.
std::string localTimeText(std::time_t time);

// Thread-safe.
class EventLog {
public:
    // Adds an event; the oldest is dropped if the log is full.
    static constexpr std::size_t kMaxEvents = 20;
    // Texts are cut to this many bytes, since events are untrusted; never inside a UTF-8 character.
    static constexpr std::size_t kMaxText = 64;

    void add(LoggedEvent event);

    // Returns the events, newest first.
    std::vector<LoggedEvent> recent() const;

    // Returns the number of events since the phone started.
    std::uint64_t count() const;

private:
    mutable std::mutex m_lock;
    std::deque<LoggedEvent> m_events; // oldest first; guarded by m_lock
    std::uint64_t m_count = 0;        // guarded by m_lock
};

} // namespace phone

#endif
