#include "listeners/event_listener.h"

#include <algorithm>
#include <ctime>

namespace phone {

bool EventListener::admit(kit::Request& request, kit::Response& response) {
    const auto event = kit::eventOf(request);
    if (!event) {
        return true;
    }
    const std::string_view sender = request.remoteAddress();
    const EventResult result = resultOf(*event, sender);
    m_phone.events.add({std::string(event->name), std::string(event->value), std::string(sender),
                        std::time(nullptr), systemClock(), result});
    if (result == EventResult::notAllowed) {
        response.status(403).text("This address may not send events.\n");
    } else if (result == EventResult::notPossible) {
        response.status(400).text("Unknown command, or not possible in the current call state.\n");
    } else {
        response.text("OK\n");
    }
    return true;
}

EventResult EventListener::resultOf(const kit::Event& event, std::string_view sender) {
    if (!isAllowed(sender)) {
        return EventResult::notAllowed;
    }
    return carryOut(event) ? EventResult::done : EventResult::notPossible;
}

bool EventListener::isAllowed(std::string_view address) const {
    const auto state = m_phone.device.state();
    const auto& allowed = state->settings.web.remoteAddresses;
    return std::find(allowed.begin(), allowed.end(), address) != allowed.end();
}

bool EventListener::carryOut(const kit::Event& event) {
    if (event.name == "key") {
        return m_phone.desk.press(event.value);
    }
    if (event.name == "number") {
        return m_phone.desk.dial(event.value);
    }
    if (event.name == "command") {
        return m_phone.desk.command(event.value);
    }
    return false;
}

} // namespace phone
