// The language that somebody sees the pages in.
#ifndef LANGUAGE_H
#define LANGUAGE_H

#include "kit/request.h"

#include <string>
#include <string_view>

namespace phone {

// The cookie that holds a language which was chosen on a page.
constexpr const char* kLanguageCookie = "lang";

// Whether there are pages in that language.
bool isLanguage(std::string_view code);

// The chosen language if there are pages in it, else the one that the browser likes best, if there
// are pages in that, else "en". "de-AT" and "zh-CN;q=0.8" are "de" and "zh".
const char* preferredLanguage(kit::Request& request);

// The language of the request, as its template variable "local" has it, or "en".
std::string languageOf(kit::Request& request);

} // namespace phone

#endif
