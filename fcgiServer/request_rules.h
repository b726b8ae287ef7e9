// Routing rules of ServletController, shared with servlet_check --explain. Internal:
// libfcgiServer.so does not export them.
//   State     none, but for the buffer of legacyRedirect().
//   Threads   any.
//   Owner     a returned text is a constant or belongs to the request, unless a function says
//             otherwise.
#ifndef REQUEST_RULES_H
#define REQUEST_RULES_H

#include <cstdint>
#include <optional>

class HttpRequest;

namespace rules {

// ---- Screening and rewriting; the operations of ServletController, and ReplaceStr(), delegate to
// these.

// Returns whether a URL contains markup or script, plain or escaped, in any case; logs the URL if
// so. A null URL does not.
bool isIllegalUrl(const char* url);

// Returns whether a parameter contains a character other than letters, digits, "-" and "_"; with
// `numeric`, other than digits after at most one leading "-". Null and the empty text do not.
bool isIllegalValue(const char* value, bool numeric);

// Returns what screening refuses first: "URL", the name of a parameter, or null for nothing. `uri`
// may be null.
const char* illegalPart(const char* uri, HttpRequest& request);

// Replaces, in place, every occurrence of `pattern` in `target`; see ReplaceStr(), which returns 0
// where this returns true.
bool replaceAll(char* target, const char* pattern, const char* replacement);

// ---- Routing

// Returns where a URL of the device's older interface is redirected to, or null for any other URL
// and for null. The text is a constant, or is in one buffer that all threads share without a lock:
// it is always terminated, but another thread may overwrite it.
const char* legacyRedirect(const char* uri);

// Returns the part of a URL after its first nine characters ("/servlet?"); an empty text for a
// shorter URL and for null.
const char* queryOf(const char* uri);

struct Event {
    const char* name;  // the event that the query begins with; null if it begins with none
    const char* value; // the parameter of that name; null if it is missing: then there is no event
};

// Returns the event that a query stands for. `query` must not be null.
Event eventOf(HttpRequest& request, const char* query);

// ---- Device status

// What the last request asked the device to do.
enum DeviceStatus : std::int32_t { Idle, Reboot, Reset, AutoProvision, Upgrade, Configuration };

// Returns the status that a query sets, or nothing if it leaves the status alone. `query` must not
// be null.
std::optional<DeviceStatus> requestedStatus(const char* query);

// Returns the word for a status: at most 13 characters, never null, whatever the number.
const char* statusWord(std::int32_t status);

// Returns whether the container answers a request for `page` itself, with the status word, instead
// of calling a servlet. `page` must not be null.
bool isAnsweredInternally(const char* page, std::int32_t status);

} // namespace rules

#endif
