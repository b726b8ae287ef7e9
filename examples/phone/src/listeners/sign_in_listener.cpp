#include "listeners/sign_in_listener.h"

#include "address.h"
#include "page.h"
#include "visit.h"

#include "kit/container_rules.h"

namespace phone {
namespace {

bool needsNoSignIn(kit::Request& request) {
    const std::string_view page = request.page();
    return page == "login" || page == "language" || page == "notice" || kit::eventOf(request);
}

// Returns the sign-in form's address, which returns to the page that was asked for, and says so to
// those who were signed in before.
std::string signInForm(kit::Request& request) {
    std::string address = kSignInForm;
    if (isPageId(request.page())) {
        address += "&jumpto=" + returnTo(request.page(), viewOf(request));
    }
    return address + (request.cookie(kKeyCookie) ? "&ended=1" : "");
}

// Returns the address of the page that sets a password, which then leads to the page that was asked
// for.
std::string firstRun(kit::Request& request) {
    const std::string address = "/servlet?p=security";
    return isPageId(request.page())
               ? address + "&jumpto=" + returnTo(request.page(), viewOf(request))
               : address;
}

// Returns whether a script is polling. Polling scripts put "p=notice" anywhere in the URL, so that
// the container keeps its status word; they do not count as visits.
bool isPoll(kit::Request& request) {
    return kit::containerQuery(request).find("p=notice") != std::string_view::npos;
}

} // namespace

bool SignInListener::admit(kit::Request& request, kit::Response& response) {
    const auto signIn = m_phone.signIns.find(request);
    visitor = isPoll(request) ? nullptr : signIn.get();
    const std::string page(request.page());
    const bool mustSetPassword =
        signIn && m_phone.device.state()->settings.web.factoryPassword && page != "security";
    if ((signIn && !mustSetPassword) || needsNoSignIn(request)) {
        return true;
    }
    if (page == "status-data") {
        response.status(signIn ? 409 : 403)
            .text(signIn ? "Set another password first.\n" : "Not signed in.\n");
    } else if (mustSetPassword) {
        response.seeOther(firstRun(request));
    } else {
        response.seeOther(signInForm(request));
    }
    return false;
}

} // namespace phone
