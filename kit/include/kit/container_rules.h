// The rules that the container applies to a URL before it calls any listener or servlet: which
// requests are events, and which status they give the device. For listeners, which see every
// request.
#ifndef KIT_CONTAINER_RULES_H
#define KIT_CONTAINER_RULES_H

#include "kit/request.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string_view>

namespace kit {

// What the last request asked the device to do; the values are the container's own.
enum class DeviceStatus { Idle, Reboot, Reset, AutoProvision, Upgrade, Configuration };

// An event: a remote key press, a number to dial, ...
struct Event {
    std::string_view name;  // "key", "number", ...
    std::string_view value; // of the parameter with that name; empty for "csta", which needs none
};

// Returns the part of the URL that the container compares with its rules: everything from the tenth
// character on, which follows "/servlet?". Empty for a shorter URL, and for a request without a
// URL. The text is not decoded, and lives until the request is served.
inline std::string_view containerQuery(Request& request) {
    constexpr std::string_view kBeforeQuery = "/servlet?";
    const char* url = request.raw().getRequestURI();
    const std::string_view text = url ? url : "";
    return text.substr(std::min(text.size(), kBeforeQuery.size()));
}

// Returns the event that the request is, or nothing for a page request. The container passes an
// event to the listeners and to no servlet.
//   Rule      the names are key, number, phonecfg, redirectcall, forward, Server, push, download,
//             command and csta. The first of them with which containerQuery() begins decides: the
//             request is that event if it also has a parameter of that name (csta needs none), and
//             a page request otherwise.
//   Lifetime  both texts live until the request is served.
//   Security  an event carries no password and no CSRF token: check remoteAddress() before you act
//             on it. The kit refuses those that the browser says other sites cause, see origin.h.
inline std::optional<Event> eventOf(Request& request) {
    constexpr const char* kNames[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                                      "Server", "push",   "download", "command",      "csta"};
    const std::string_view query = containerQuery(request);
    const auto name = std::find_if(std::begin(kNames), std::end(kNames), [&](std::string_view one) {
        return query.substr(0, one.size()) == one;
    });
    if (name == std::end(kNames)) {
        return std::nullopt;
    }
    if (std::string_view(*name) == "csta") {
        return Event{*name, ""};
    }
    const auto value = request.parameter(*name);
    return value ? std::optional<Event>({*name, *value}) : std::nullopt;
}

// Returns the status that the container gives the device for a request with this containerQuery(),
// or nothing if the request does not change the status. The container sets the status before it
// calls any listener, whether or not a page then does what the query asks for.
inline std::optional<DeviceStatus> requestedStatus(std::string_view query) {
    const auto contains = [query](std::string_view part) {
        return query.find(part) != std::string_view::npos;
    };
    if (contains("reboot=true") || contains("q=reboot")) {
        return DeviceStatus::Reboot;
    }
    if (contains("p=settings-upgrade&q=reset")) {
        return DeviceStatus::Reset;
    }
    if (contains("now=true")) {
        return DeviceStatus::AutoProvision;
    }
    for (std::string_view whole :
         {"p=settings-config&q=import", "p=settings-config&q=localconfig&type=import",
          "p=settings-config&q=localconfig&type=remove"}) {
        if (query == whole) {
            return DeviceStatus::Configuration;
        }
    }
    return contains("p=notice") ? std::nullopt : std::optional(DeviceStatus::Idle);
}

// Returns the word with which the container answers p=notice: "idle", "reboot", "reset",
// "autoprovision", "upgrade" or "configration", spelled as clients expect it; "unkown" for any
// other value. Never null. While the status is AutoProvision, the container calls the servlet
// instead.
inline const char* statusWord(DeviceStatus status) {
    constexpr const char* kWords[] = {"idle",          "reboot",  "reset",
                                      "autoprovision", "upgrade", "configration"};
    const auto index = static_cast<std::size_t>(status);
    return index < std::size(kWords) ? kWords[index] : "unkown";
}

} // namespace kit

#endif
