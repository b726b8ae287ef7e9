#include "language.h"

#include <algorithm>
#include <initializer_list>

namespace phone {
namespace {

const std::initializer_list<std::string_view> kLanguages = {"en", "de", "zh"};

} // namespace

bool isLanguage(std::string_view code) {
    return std::find(kLanguages.begin(), kLanguages.end(), code) != kLanguages.end();
}

std::string preferredLanguage(kit::Request& request) {
    const auto chosen =
        kit::preferredLanguage(request.cookie(kLanguageCookie).value_or(""), kLanguages);
    return chosen ? std::string(*chosen) : languageOf(request);
}

std::string languageOf(kit::Request& request) {
    return std::string(request.language(kLanguages));
}

} // namespace phone
