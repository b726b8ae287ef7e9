#include "event_log.h"

#include "short_text.h"

namespace phone {

void EventLog::add(std::string_view name, std::string_view value, std::string_view remoteAddress,
                   std::time_t time) {
    LoggedEvent event{shortText(name, kMaxText), shortText(value, kMaxText),
                      shortText(remoteAddress, kMaxText), time};
    std::lock_guard<std::mutex> lock(m_lock);
    if (m_events.size() == kMaxEvents) {
        m_events.pop_front();
    }
    m_events.push_back(std::move(event));
}

std::vector<LoggedEvent> EventLog::recent() const {
    std::lock_guard<std::mutex> lock(m_lock);
    return {m_events.rbegin(), m_events.rend()};
}

} // namespace phone
