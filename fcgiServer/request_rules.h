// The rules by which ServletController decides on a request, for it and for programs that tell what
// it would do. They are in servlet_controller.cpp; libfcgiServer.so does not export them.
#ifndef REQUEST_RULES_H
#define REQUEST_RULES_H

#include <cstdint>
#include <optional>

class HttpRequest;
class ServletController;

namespace rules {

enum DeviceStatus : std::int32_t { IDLE, REBOOT, RESET, AUTOPROVISION, UPGRADE, CONFIGURATION };

struct Event {
    const char* name;  // how the query begins; null when it begins like no event
    const char* value; // null when the parameter is missing, and the request so is no event
};

// What screening refuses first: "URL", the name of a parameter, or null for nothing. `uri` may be
// null.
const char* refusedPart(ServletController& controller, const char* uri, HttpRequest& request);

// Where a URL of the older interface leads today; null for any other, and for null. The text is a
// constant or in the one buffer of all threads.
const char* successorOf(const char* uri);

// The part of a URL from its tenth character on, which is behind "/servlet?"; empty where there is
// none, and for null.
const char* queryOf(const char* uri);

// What event the query is; `query` must not be null. Texts belong to the request or are constants.
Event eventOf(HttpRequest& request, const char* query);

// The status that a query, which must not be null, gives the device; nothing when it leaves that
// alone.
std::optional<DeviceStatus> statusAskedBy(const char* query);

// At most 13 characters; never null, whatever the status.
const char* wordOf(std::int32_t status);

// Whether the container answers a request for `page`, which must not be null, with that word itself
// instead of asking a servlet.
bool isAnsweredByTheWord(const char* page, std::int32_t status);

} // namespace rules

#endif
