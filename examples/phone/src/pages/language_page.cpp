#include "pages/language_page.h"

#include "address.h"
#include "language.h"

namespace phone {
namespace {

constexpr long kYear = 365L * 24 * 60 * 60; // seconds

// Returns the sign-in form's address, which leads to the same page as before.
std::string signInFormAgain(kit::Request& request) {
    std::string address = kSignInForm;
    const std::string_view page = request.parameter("jumpto").value_or("");
    if (isPageId(page)) {
        address += "&jumpto=" + returnTo(page, viewAskedFor(request));
    }
    return address + (request.isChecked("ended") ? "&ended=1" : "");
}

} // namespace

void LanguagePage::answer(kit::Request& request, kit::Response& response) {
    const std::string language(request.parameter("to").value_or(""));
    if (isLanguage(language)) {
        kit::Cookie cookie{kLanguageCookie, language};
        cookie.maxAge = kYear;
        response.cookie(cookie);
    }
    const std::string back(request.parameter("back").value_or(""));
    response.seeOther(isPageId(back) ? addressOf(back, viewAskedFor(request))
                                     : signInFormAgain(request));
}

} // namespace phone
