#include "phone_event.h"

#include "HttpRequest.h"

#include <cstring>

namespace phone {
namespace {

// Tried in this order; the first whose text the query begins with decides.
const char* const kEventNames[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                                   "Server", "push",   "download", "command",      "csta"};

const std::size_t kQueryOffset = std::strlen("/servlet?");

const char* queryOf(HttpRequest& request) {
    const char* uri = request.getRequestURI();
    return uri != nullptr && std::strlen(uri) > kQueryOffset ? uri + kQueryOffset : "";
}

} // namespace

std::optional<PhoneEvent> eventOf(HttpRequest& request) {
    const char* query = queryOf(request);
    for (const char* name : kEventNames) {
        if (std::strncmp(query, name, std::strlen(name)) != 0) {
            continue;
        }
        if (std::strcmp(name, "csta") == 0) {
            return PhoneEvent{name, ""};
        }
        const char* value = request.getParameter(name);
        return value != nullptr ? std::optional<PhoneEvent>({name, value}) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace phone
