#include "error_pages.h"

#include "language.h"

#include "kit/container_rules.h"
#include "kit/error_pages.h"

namespace phone {
namespace {

bool isForScript(kit::Request& request) {
    const std::string_view page = request.page();
    return page == "status-data" || page == "notice" || kit::eventOf(request);
}

} // namespace

ErrorPages::ErrorPages(Phone& phone) : PageWriter(phone) {
    kit::ErrorPages::use([this](kit::Request& request, kit::Response& response, int status) {
        return showError(request, response, status);
    });
}

ErrorPages::~ErrorPages() {
    kit::ErrorPages::use(nullptr);
}

bool ErrorPages::showError(kit::Request& request, kit::Response& response, int status) const {
    const bool isShown = status == 403 || status == 404 || status == 500;
    if (!isShown || isForScript(request)) {
        return false;
    }
    if (status == 403) {
        request.setLanguage(preferredLanguage(request)); // LanguageListener has not been asked
    }
    const char* code = status == 403 ? "otherSite" : status == 404 ? "noAction" : "fault";
    show(request, response, "message.html",
         std::move(errorFrame(request, status).set("code", code)));
    return true;
}

kit::Variables ErrorPages::errorFrame(kit::Request& request, int status) const {
    // A request of another site does not get the user's token.
    const auto signIn = status == 403 ? nullptr : m_phone.signIns.find(request);
    kit::Variables variables;
    if (signIn) {
        variables = frame(request, *signIn);
        variables.set("interrupted", request.isPost());
    } else {
        variables.set("page", request.page()).set("here", "login").set("toSignIn", status != 403);
    }
    return variables;
}

} // namespace phone
