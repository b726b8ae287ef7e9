// Requests that are no page requests but events: a remote key press, a number to dial, …
#ifndef PHONE_EVENT_H
#define PHONE_EVENT_H

#include "kit/request.h"

#include <optional>
#include <string_view>

namespace phone {

// The text of the address from which the container reads what a request is: all behind "/servlet?".
std::string_view queryOf(kit::Request& request);

// Whether the container leaves its word about the phone as it is: scripts that only look after
// their page write "p=notice" somewhere into the address, and count as no visit.
bool leavesStatusAlone(kit::Request& request);

// Both texts live until the request is served.
struct PhoneEvent {
    std::string_view name;
    std::string_view value;
};

// The event that the request is, by the rule by which the container keeps events from every
// servlet: its query begins with the name of an event, and it has a parameter of that name
// ("csta" needs none). A request that only begins like an event is a page request.
std::optional<PhoneEvent> eventOf(kit::Request& request);

} // namespace phone

#endif
