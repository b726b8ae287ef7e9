#include "event_log.h"

#include "kit/text.h"

namespace phone {

const char* nameOf(EventResult result) {
    switch (result) {
    case EventResult::done:
        return "done";
    case EventResult::notAllowed:
        return "notAllowed";
    case EventResult::notPossible:
        return "notPossible";
    }
    return "";
}

std::string localTimeText(std::time_t time) {
    std::tm parts{};
    char text[32] = "";
    if (localtime_r(&time, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    }
    return text;
}

void EventLog::add(LoggedEvent event) {
    for (std::string* text : {&event.name, &event.value, &event.remoteAddress}) {
        text->resize(kit::shortened(*text, kMaxText).size());
    }
    std::lock_guard<std::mutex> guard(m_lock);
    ++m_count;
    if (m_events.size() == kMaxEvents) {
        m_events.pop_front();
    }
    m_events.push_back(std::move(event));
}

std::vector<LoggedEvent> EventLog::recent() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return {m_events.rbegin(), m_events.rend()};
}

std::uint64_t EventLog::count() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_count;
}

} // namespace phone
