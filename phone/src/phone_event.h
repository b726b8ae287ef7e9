// Requests that are no page requests but events: a remote key press, a number to dial, …
#ifndef PHONE_EVENT_H
#define PHONE_EVENT_H

#include <optional>

class HttpRequest;

namespace phone {

// Both texts live until the request is served.
struct PhoneEvent {
    const char* name;
    const char* value;
};

// The event that the request is, by the rule by which the container keeps events from every
// servlet: its query begins with the name of an event, and it has a parameter of that name
// ("csta" needs none). A request that only begins like an event is a page request.
std::optional<PhoneEvent> eventOf(HttpRequest& request);

} // namespace phone

#endif
