#include "access_log.h"

#include "base/ascii.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t kLongestPage = 64;

bool isOfPageIds(char character) {
    return base::isAsciiLetter(character) || base::isAsciiDigit(character) || character == '-' ||
           character == '_';
}

} // namespace

std::string_view pageOf(const char* query) {
    constexpr std::string_view kName = "p=";
    std::string_view rest = query != nullptr ? query : "";
    while (!rest.empty()) {
        const std::string_view field = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), field.size() + 1));
        if (field.substr(0, kName.size()) != kName)
            continue;
        const std::string_view page = field.substr(kName.size());
        const bool isShown =
            page.size() <= kLongestPage && std::all_of(page.begin(), page.end(), isOfPageIds);
        return isShown ? page : std::string_view();
    }
    return {};
}

void writeAccessLogHeader(FCGX_Request& request, unsigned long number) {
    const std::string_view page = pageOf(FCGX_GetParam("QUERY_STRING", request.envp));
    const std::string_view shown = page.empty() ? "-" : page;
    FCGX_FPrintF(request.out, "X-Access-Log: request=%lu p=%.*s\r\n", number,
                 static_cast<int>(shown.size()), shown.data());
}
