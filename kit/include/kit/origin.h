// Where a request comes from, as far as the browser says so: the host name that it uses for the
// device (against DNS rebinding), and whether a page of another site caused it (against CSRF).
// Pages and listeners of the kit refuse such requests by themselves.
#ifndef KIT_ORIGIN_H
#define KIT_ORIGIN_H

#include "base/ascii.h"
#include "kit/container_rules.h"
#include "kit/request.h"
#include "kit/response.h"
#include "web_debug.h"

#include <algorithm>
#include <arpa/inet.h>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kit {

// Returns the name or address in a Host header or in the authority of a URL: in lower case, without
// the port, a dot at its end and the brackets of an IPv6 address.
inline std::string hostName(std::string_view authority) {
    const bool isBracketed = !authority.empty() && authority[0] == '[';
    const std::size_t end =
        isBracketed ? authority.find(']') : std::min(authority.find(':'), authority.size());
    if (end == std::string_view::npos) {
        return "";
    }
    std::string name(authority.substr(isBracketed ? 1 : 0, end - (isBracketed ? 1 : 0)));
    std::transform(name.begin(), name.end(), name.begin(), base::asciiLower);
    if (!name.empty() && name.back() == '.') {
        name.pop_back();
    }
    return name;
}

// The host names under which the plug-in's pages can be opened, beside IP addresses, "localhost"
// and the system's own name, with and without ".local". An attacker's name can be made to lead to
// the device (DNS rebinding); the browser then takes the attacker's pages and the device's for one
// site.
//   Threads  any, at any time.
class HostNames {
public:
    // Returns whether the device also answers to `name`, which is as hostName() returns it.
    using Check = std::function<bool(const std::string& name)>;

    // Replaces the check for further names. It must not throw; it may run on several threads at
    // once.
    static void accept(Check check) {
        Shared& shared = instance();
        std::lock_guard<std::mutex> guard(shared.lock);
        shared.check = std::move(check);
    }

    // Returns whether the device answers to `name`, which is as hostName() returns it.
    static bool contain(const std::string& name) {
        if (isAddress(name) || name == "localhost" || isOwnName(name)) {
            return true;
        }
        Check check;
        {
            Shared& shared = instance();
            std::lock_guard<std::mutex> guard(shared.lock);
            check = shared.check;
        }
        return check && check(name);
    }

private:
    struct Shared {
        std::mutex lock;
        Check check;
    };

    static Shared& instance() {
        static Shared shared;
        return shared;
    }

    static bool isAddress(const std::string& name) {
        in6_addr address{};
        return inet_pton(AF_INET, name.c_str(), &address) == 1 ||
               inet_pton(AF_INET6, name.c_str(), &address) == 1;
    }

    static bool isOwnName(const std::string& name) {
        constexpr std::size_t kSize = 256; // HOST_NAME_MAX is 64
        char text[kSize] = {};
        if (gethostname(text, sizeof text - 1) != 0) {
            return false;
        }
        const std::string own = hostName(text);
        return !own.empty() && (name == own || name == own + ".local");
    }
};

// Returns whether the browser says that a page of another site caused the request: by
// Sec-Fetch-Site (Fetch Metadata), else by Origin, else by Referer, whose host and port are
// compared with the request's. False if it says nothing: for other programs, and over plain HTTP
// for many requests of other sites, which can suppress the Referer.
inline bool isFromOtherSite(Request& request) {
    if (const auto site = request.variable("HTTP_SEC_FETCH_SITE")) {
        return site != "same-origin" && site != "none";
    }
    for (const char* header : {"HTTP_ORIGIN", "HTTP_REFERER"}) {
        if (const auto url = request.variable(header)) {
            const std::size_t scheme = url->find("://");
            const std::string_view rest =
                scheme != url->npos ? url->substr(scheme + 3) : std::string_view();
            return rest.substr(0, rest.find('/')) != request.variable("HTTP_HOST").value_or("");
        }
    }
    return false;
}

namespace internal {

// Returns whether the request is a page that the user opens, for which a link of another site is
// allowed: a GET in a window or tab, and no event.
inline bool opensAPage(Request& request) {
    const std::string_view method = request.method();
    const auto mode = request.variable("HTTP_SEC_FETCH_MODE");
    const auto target = request.variable("HTTP_SEC_FETCH_DEST");
    return (method == "GET" || method == "HEAD") && !eventOf(request) &&
           mode.value_or("navigate") == "navigate" && target.value_or("document") == "document";
}

// Returns the event or page that the request is for, as log lines name it.
inline std::string subjectOf(Request& request) {
    const auto event = eventOf(request);
    return event ? "Event " + std::string(event->name) : "Page " + std::string(request.page());
}

// Returns whether the request must not be served because of its host name or its origin. If so, the
// refusal has been sent.
inline bool isRefused(Request& request, Response& response) {
    const auto host = request.variable("HTTP_HOST");
    if (host && !HostNames::contain(hostName(*host))) {
        WebDebug::getInstance()->warn("%s: refused a request for the unknown host name %s",
                                      subjectOf(request).c_str(), std::string(*host).c_str());
        response.error(421, "This device does not answer to this name. "
                            "Use its IP address, or add the name to its settings.\n");
        return true;
    }
    if (isFromOtherSite(request) && !opensAPage(request)) {
        WebDebug::getInstance()->warn("%s: refused a request that another site caused",
                                      subjectOf(request).c_str());
        response.error(403, "Refused, because another site caused this request.\n");
        return true;
    }
    return false;
}

} // namespace internal

} // namespace kit

#endif
