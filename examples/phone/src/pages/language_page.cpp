#include "pages/language_page.h"

#include "language.h"

namespace phone {
namespace {

constexpr long kYear = 365L * 24 * 60 * 60; // seconds

} // namespace

void LanguagePage::answer(kit::Request& request, kit::Response& response) {
    const std::string language(request.parameter("to").value_or(""));
    if (isLanguage(language)) {
        kit::Cookie cookie{kLanguageCookie, language};
        cookie.maxAge = kYear;
        response.cookie(cookie);
    }
    const std::string back(request.parameter("back").value_or(""));
    response.seeOther(isPageId(back) ? "/servlet?p=" + back : kSignInForm);
}

} // namespace phone
