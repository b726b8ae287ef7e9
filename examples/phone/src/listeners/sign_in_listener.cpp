#include "listeners/sign_in_listener.h"

#include "page.h"
#include "visit.h"

#include "kit/container_rules.h"

namespace phone {
namespace {

bool needsNoSignIn(kit::Request& request) {
    const std::string_view page = request.page();
    return page == "login" || page == "language" || page == "notice" || kit::eventOf(request);
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
        response.status(403).text("Not signed in.\n");
    } else if (mustSetPassword) {
        response.seeOther("/servlet?p=security");
    } else {
        response.seeOther(kSignInForm + (isPageId(page) ? "&jumpto=" + page : ""));
    }
    return false;
}

} // namespace phone
