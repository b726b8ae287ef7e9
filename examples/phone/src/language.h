// The language of the pages.
#ifndef LANGUAGE_H
#define LANGUAGE_H

#include "kit/request.h"

#include <string>
#include <string_view>

namespace phone {

// The cookie that stores the language chosen on a page.
constexpr const char* kLanguageCookie = "lang";

// Returns whether there are pages in that language.
bool isLanguage(std::string_view code);

// Returns the language chosen if there are pages in it, else the browser's most preferred one with
// pages, else "en". "de-AT" and "zh-CN;q=0.8" count as "de" and "zh".
std::string preferredLanguage(kit::Request& request);

// Returns the language that LanguageListener has set for the request, else the browser's, or "en".
std::string languageOf(kit::Request& request);

} // namespace phone

#endif
