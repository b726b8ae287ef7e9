#include "listeners/event_listener.h"

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "page.h"
#include "phone_event.h"
#include "web_debug.h"

#include <ctime>
#include <new>

namespace phone {

bool EventListener::onRequest(HttpRequest* request, HttpResponse* response) {
    const std::optional<PhoneEvent> event = eventOf(*request);
    if (!event) {
        return true;
    }
    try {
        const char* sender = request->getRemoteAddr();
        m_phone.events.add(event->name, event->value, sender != nullptr ? sender : "",
                           std::time(nullptr));
        setPageHeaders(*response, "text/plain; charset=utf-8");
        response->print("OK\n");
    } catch (const std::bad_alloc&) {
        WebDebug::getInstance()->error("No memory to record an event");
    }
    return true;
}

} // namespace phone
