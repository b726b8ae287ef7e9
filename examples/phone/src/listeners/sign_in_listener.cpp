#include "listeners/sign_in_listener.h"

#include "page.h"
#include "phone_event.h"
#include "visit.h"

namespace phone {
namespace {

bool isForAll(kit::Request& request) {
    const std::string_view page = request.page();
    return page == "login" || page == "language" || page == "notice" || eventOf(request);
}

} // namespace

bool SignInListener::admit(kit::Request& request, kit::Response& response) {
    const auto signIn = m_phone.signIns.find(request);
    visitor = leavesStatusAlone(request) ? nullptr : signIn.get();
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
