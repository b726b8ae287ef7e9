#include "address.h"

#include "base/ascii.h"
#include "kit/container_rules.h"

#include <algorithm>

namespace phone {
namespace {

// The page itself, what asks for an action, and what returns to a page.
constexpr std::string_view kNotShown[] = {"p", "q", "type", "now", "token", "jumpto", "view"};

bool selectsAView(std::string_view parameter) {
    const std::string_view name = parameter.substr(0, parameter.find('='));
    return std::find(std::begin(kNotShown), std::end(kNotShown), name) == std::end(kNotShown);
}

// The unreserved characters of RFC 3986, section 2.3.
bool isUnreserved(char c) {
    return base::isAsciiLetter(c) || base::isAsciiDigit(c) ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view text) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string encoded;
    for (char c : text) {
        if (isUnreserved(c)) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
        }
    }
    return encoded;
}

} // namespace

std::string viewOf(kit::Request& request) {
    std::string chosen;
    std::string_view rest = kit::containerQuery(request);
    while (!rest.empty()) {
        const std::string_view parameter = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), parameter.size() + 1));
        if (!parameter.empty() && selectsAView(parameter)) {
            chosen.append(chosen.empty() ? "" : "&").append(parameter);
        }
    }
    return isView(chosen) ? chosen : "";
}

bool isView(std::string_view view) {
    for (const char c : view) {
        if (!isUnreserved(c) && std::string_view("%+=&").find(c) == std::string_view::npos) {
            return false;
        }
    }
    return view.size() <= kMaxViewBytes;
}

std::string addressOf(std::string_view page, std::string_view view) {
    std::string address = "/servlet?p=" + std::string(page);
    return view.empty() ? address : address.append("&").append(view);
}

std::string returnTo(std::string_view page, std::string_view view) {
    return std::string(page) + (view.empty() ? "" : "&view=" + percentEncoded(view));
}

std::string_view viewAskedFor(kit::Request& request) {
    const std::string_view view = request.parameter("view").value_or("");
    return isView(view) ? view : "";
}

} // namespace phone
