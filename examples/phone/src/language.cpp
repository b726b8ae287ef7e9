#include "language.h"

namespace phone {
namespace {

constexpr const char* kLanguages[] = {"en", "de", "zh"};
constexpr std::size_t kLocaleSize = 64;

// Template variables that the container sets: the browser's preferences, and the result of
// setLocal().
std::string_view localeOf(kit::Request& request, char (&buffer)[kLocaleSize]) {
    const char* locale = request.raw().getLocale(buffer, sizeof buffer);
    return locale ? locale : "";
}

// Returns the language for "de", "de-AT" or "DE_at;q=0.5"; null if it has no pages.
const char* supported(std::string_view locale) {
    const std::string_view primary = locale.substr(0, locale.find_first_of("-_;, "));
    for (const char* language : kLanguages) {
        const bool same = primary.size() == 2 && (primary[0] | 0x20) == language[0] &&
                          (primary[1] | 0x20) == language[1];
        if (same) {
            return language;
        }
    }
    return nullptr;
}

} // namespace

bool isLanguage(std::string_view code) {
    for (const char* language : kLanguages) {
        if (code == language) {
            return true;
        }
    }
    return false;
}

const char* preferredLanguage(kit::Request& request) {
    char buffer[kLocaleSize] = "";
    const char* chosen = supported(request.cookie(kLanguageCookie).value_or(""));
    const char* liked = chosen ? chosen : supported(localeOf(request, buffer));
    return liked ? liked : "en";
}

std::string languageOf(kit::Request& request) {
    char buffer[kLocaleSize] = "";
    const char* language = supported(localeOf(request, buffer));
    return language ? language : "en";
}

} // namespace phone
