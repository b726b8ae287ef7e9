#include "listeners/sign_in_listener.h"

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "page.h"
#include "phone_event.h"
#include "web_debug.h"

#include <new>

namespace phone {

bool SignInListener::onRequest(HttpRequest* request, HttpResponse* response) {
    try {
        if (mayPass(*request)) {
            return true;
        }
        const std::string page = parameter(*request, "p");
        std::string location = kSignInForm;
        if (isPageId(page.c_str())) {
            location += "&jumpto=" + page;
        }
        response->sendRedirect(location.c_str());
    } catch (const std::bad_alloc&) {
        WebDebug::getInstance()->error("No memory to tell who is signed in");
    }
    return false;
}

bool SignInListener::mayPass(HttpRequest& request) const {
    if (eventOf(request)) {
        return true;
    }
    const std::string page = parameter(request, "p");
    return page == "login" || page == "notice" || m_phone.signInOf(request);
}

} // namespace phone
