#include "phone_event.h"

#include <algorithm>

namespace phone {
namespace {

// Tried in this order; the first whose text the query begins with decides.
constexpr const char* kEventNames[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                                       "Server", "push",   "download", "command",      "csta"};

constexpr std::string_view kBeforeQuery = "/servlet?";

} // namespace

std::string_view queryOf(kit::Request& request) {
    const char* uri = request.raw().getRequestURI();
    const std::string_view text = uri ? uri : "";
    return text.substr(std::min(text.size(), kBeforeQuery.size()));
}

bool leavesStatusAlone(kit::Request& request) {
    return queryOf(request).find("p=notice") != std::string_view::npos;
}

std::optional<PhoneEvent> eventOf(kit::Request& request) {
    const std::string_view query = queryOf(request);
    for (const char* name : kEventNames) {
        const std::string_view wanted = name;
        if (query.substr(0, wanted.size()) != wanted) {
            continue;
        }
        if (wanted == "csta") {
            return PhoneEvent{wanted, ""};
        }
        const auto value = request.parameter(name);
        return value ? std::optional<PhoneEvent>({wanted, *value}) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace phone
