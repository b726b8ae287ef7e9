#include <kit/testing/browser.h>

#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>
#include <utility>

namespace kit::testing {
namespace {

// Returns whether the cookie has expired, or nothing for a Max-Age that browsers ignore because it
// is not a whole number (RFC 6265, section 5.2.2).
std::optional<bool> isMaxAgeOver(const std::string& maxAge) {
    const std::size_t sign = maxAge.rfind('-', 0) == 0 ? 1 : 0;
    if (maxAge.size() == sign || maxAge.find_first_not_of("0123456789", sign) != std::string::npos)
        return std::nullopt;
    return sign == 1 || maxAge.find_first_not_of('0') == std::string::npos;
}

// Accepts the two date formats that servers use; a date in any other format is ignored.
bool isPast(const std::string& text) {
    for (const char* format : {"%a, %d %b %Y %H:%M:%S", "%a, %d-%b-%Y %H:%M:%S"}) {
        std::tm time{};
        std::istringstream stream(text);
        stream.imbue(std::locale::classic());
        if (!(stream >> std::get_time(&time, format)))
            continue;
        const std::time_t date = ::timegm(&time);
        const bool isTooFar = date == -1 && time.tm_year > 70; // for a 32-bit time_t
        return !isTooFar && date <= std::time(nullptr);
    }
    return false;
}

bool hasExpired(const Cookie& cookie) {
    if (const auto maxAge = cookie.attribute("Max-Age"))
        if (const auto over = isMaxAgeOver(*maxAge))
            return *over;
    const auto expires = cookie.attribute("Expires");
    return expires && isPast(*expires);
}

} // namespace

Browser::Browser(Runner& runner, std::string address)
    : m_runner(runner), m_address(std::move(address)) {}

Response Browser::send(const Request& request) {
    Request sent = request.from(m_address);
    for (const auto& [name, value] : m_jar)
        sent = sent.cookie(name, value);
    Response response = m_runner.serve(sent);
    for (const Cookie& cookie : response.cookies())
        store(cookie);
    return response;
}

void Browser::store(const Cookie& cookie) {
    if (hasExpired(cookie))
        m_jar.erase(cookie.name);
    else
        m_jar[cookie.name] = cookie.value;
}

std::optional<std::string> Browser::cookie(const std::string& name) const {
    const auto found = m_jar.find(name);
    return found != m_jar.end() ? std::optional(found->second) : std::nullopt;
}

} // namespace kit::testing
