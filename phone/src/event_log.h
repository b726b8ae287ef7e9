// The events that reached the phone last.
#ifndef EVENT_LOG_H
#define EVENT_LOG_H

#include <cstddef>
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
};

// Any thread, at any time.
class EventLog {
public:
    // With one more the oldest is dropped.
    static constexpr std::size_t kMaxEvents = 20;
    // Bytes that are kept of a text; strangers send events. The cut is never inside a UTF-8
    // character.
    static constexpr std::size_t kMaxText = 64;

    void add(std::string_view name, std::string_view value, std::string_view remoteAddress,
             std::time_t time);

    // The newest first.
    std::vector<LoggedEvent> recent() const;

private:
    mutable std::mutex m_lock;
    std::deque<LoggedEvent> m_events; // the oldest first; guarded by m_lock
};

} // namespace phone

#endif
