#include "request_rules.h"

#include "HttpRequest.h"
#include "app_log.h"
#include "base/ascii.h"
#include "base/short_text.h"
#include "log_module.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory_resource>
#include <string>
#include <string_view>
#include <syslog.h>

namespace {

const char kSignInPage[] = "/servlet?p=login&q=loginForm&jumpto=status";
constexpr std::size_t kQueryOffset = sizeof "/servlet?" - 1;
constexpr std::size_t kRewriteSize = 512;
constexpr std::size_t kUsualUrlSize = 512;

// Shared by all threads, without a lock. Its last byte stays zero, so that its text is terminated
// whatever two threads do at once.
char rewriteBuffer[kRewriteSize];

// What a URL must not contain, in lower case.
constexpr std::string_view kMarkup[] = {"%3e", "%3c", "<", ">", "script"};

// Pages of the device's older interface that are redirected to the sign-in page.
constexpr std::string_view kLegacyPages[] = {
    "/cgi-bin/Velmoranix.acx?Id=1",
    "/cgi-bin/Velmoranix.acx?Id=7",
    "/cgi-bin/Quillpage.tpx?page=Status.htm",
    "/cgi-bin/Quillpage.tpx?page=Phone-Upgrade.htm",
};

// Programs of the older interface; their other pages keep their query under "servlet".
const char* const kLegacyPrograms[] = {"cgi-bin/Quillpage.tpx", "cgi-bin/Velmoranix.acx"};

// Prefixes that make a query an event for the listeners; the first match decides.
constexpr std::string_view kEvents[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                                        "Server", "push",   "download", "command",      "csta"};
constexpr std::string_view kEventWithoutValue = "csta";

using rules::DeviceStatus;

// Indexed by the device status. Existing pages depend on the spelling of "configration" and of
// "unkown", below.
const char* const kStatusWords[] = {"idle",          "reboot",  "reset",
                                    "autoprovision", "upgrade", "configration"};

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

} // namespace

bool rules::isIllegalUrl(const char* url) {
    if (url == nullptr)
        return false;
    std::array<char, kUsualUrlSize> room; // so that only a longer URL takes memory from the heap
    std::pmr::monotonic_buffer_resource memory(room.data(), room.size());
    std::pmr::string lowered(url, &memory);
    for (char& c : lowered)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool illegal =
        std::any_of(std::begin(kMarkup), std::end(kMarkup),
                    [&](std::string_view markup) { return contains(lowered, markup); });
    if (illegal)
        app_log(kLogModule, LOG_ERR, "url = %s, include illegal char\n", url);
    return illegal;
}

bool rules::isIllegalValue(const char* value, bool numeric) {
    if (value == nullptr)
        return false;
    for (const char* next = value; *next != '\0'; ++next) {
        const char c = *next;
        const bool accepted =
            base::isAsciiDigit(c) ||
            (numeric ? c == '-' && next == value : base::isAsciiLetter(c) || c == '-' || c == '_');
        if (!accepted)
            return true;
    }
    return false;
}

const char* rules::illegalPart(const char* uri, HttpRequest& request) {
    const char* jumpto = request.getParameter("jumpto");
    const char* account = request.getParameter("acc");
    const char* page = request.getParameter("p");
    const char* model = request.getParameter("model");
    if (isIllegalUrl(uri))
        return "URL";
    if (isIllegalValue(jumpto, false))
        return "jumpto";
    if (isIllegalValue(page, false))
        return "p";
    if (isIllegalValue(account, true))
        return "acc";
    if (isIllegalValue(model, true))
        return "model";
    return nullptr;
}

bool rules::replaceAll(char* target, const char* pattern, const char* replacement) {
    if (target == nullptr || pattern == nullptr || replacement == nullptr || *pattern == '\0')
        return false;
    const char* match = std::strstr(target, pattern);
    if (match == nullptr)
        return false;

    char result[kRewriteSize] = {};
    std::size_t used = 0;
    const auto append = [&](const char* text, std::size_t length) {
        if (length >= sizeof result - used)
            return false;
        std::memcpy(result + used, text, length);
        used += length;
        return true;
    };
    const std::size_t patternLength = std::strlen(pattern);
    const std::size_t replacementLength = std::strlen(replacement);
    const char* rest = target;
    for (; match != nullptr; match = std::strstr(rest, pattern)) {
        if (!append(rest, static_cast<std::size_t>(match - rest)) ||
            !append(replacement, replacementLength))
            return false;
        rest = match + patternLength;
    }
    if (!append(rest, std::strlen(rest)))
        return false;
    std::strcpy(target, result);
    return true;
}

const char* rules::legacyRedirect(const char* uri) {
    if (uri == nullptr)
        return nullptr;
    for (const std::string_view page : kLegacyPages)
        if (base::startsWith(uri, page))
            return kSignInPage;
    std::strncpy(rewriteBuffer, uri, sizeof rewriteBuffer - 1);
    for (const char* program : kLegacyPrograms)
        if (replaceAll(rewriteBuffer, program, "servlet"))
            return rewriteBuffer;
    return nullptr;
}

const char* rules::queryOf(const char* uri) {
    return uri != nullptr && std::strlen(uri) >= kQueryOffset ? uri + kQueryOffset : "";
}

rules::Event rules::eventOf(HttpRequest& request, const char* query) {
    assert(query != nullptr);
    for (const std::string_view event : kEvents) {
        if (std::strncmp(query, event.data(), event.size()) != 0)
            continue;
        const char* name = event.data();
        return {name, event == kEventWithoutValue ? name : request.getParameter(name)};
    }
    return {nullptr, nullptr};
}

std::optional<DeviceStatus> rules::requestedStatus(const char* query) {
    assert(query != nullptr);
    const std::string_view asked = query;
    if (contains(asked, "reboot=true") || contains(asked, "q=reboot"))
        return DeviceStatus::Reboot;
    if (contains(asked, "p=settings-upgrade&q=reset"))
        return DeviceStatus::Reset;
    if (contains(asked, "now=true"))
        return DeviceStatus::AutoProvision;
    if (asked == "p=settings-config&q=import" ||
        asked == "p=settings-config&q=localconfig&type=import" ||
        asked == "p=settings-config&q=localconfig&type=remove")
        return DeviceStatus::Configuration;
    if (contains(asked, "p=notice"))
        return std::nullopt;
    return DeviceStatus::Idle;
}

const char* rules::statusWord(std::int32_t status) {
    const bool known = status >= DeviceStatus::Idle && status <= DeviceStatus::Configuration;
    return known ? kStatusWords[status] : "unkown";
}

bool rules::isAnsweredInternally(const char* page, std::int32_t status) {
    assert(page != nullptr);
    return std::strcmp(page, "notice") == 0 && status != DeviceStatus::AutoProvision;
}
