#include "listeners/sign_in_listener.h"

#include "page.h"
#include "visit.h"

#include "kit/container_rules.h"

namespace phone {
namespace {

bool isForAll(kit::Request& request) {
    const std::string_view page = request.page();
    return page == "login" || page == "language" || page == "notice" || kit::eventOf(request);
}

// Scripts that only keep their page up to date write "p=notice" somewhere into the URL, so that the
// container's status word stays; they count as no visit.
bool isPoll(kit::Request& request) {
    return kit::containerQuery(request).find("p=notice") != std::string_view::npos;
}

} // namespace

bool SignInListener::admit(kit::Request& request, kit::Response& response) {
    const auto signIn = m_phone.signIns.find(request);
    visitor = isPoll(request) ? nullptr : signIn.get();
    if (signIn || isForAll(request)) {
        return true;
    }
    const std::string page(request.page());
    if (page == "status-data") {
        response.status(403).text("Not signed in.\n");
    } else {
        response.seeOther(kSignInForm + (isPageId(page) ? "&jumpto=" + page : ""));
    }
    return false;
}

} // namespace phone
