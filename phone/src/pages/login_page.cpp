#include "pages/login_page.h"

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpSession.h"
#include "session_attributes.h"
#include "web_debug.h"

namespace phone {
namespace {

void showForm(HttpRequest& request, HttpResponse& response, const char* message) {
    const std::string jumpto = parameter(request, "jumpto");
    PageVariables variables;
    variables.add("message", message);
    if (isPageId(jumpto.c_str())) {
        variables.add("jumpto", jumpto);
    }
    showTemplate(response, "login.html", std::move(variables));
}

std::string landingPage(HttpRequest& request) {
    const std::string jumpto = parameter(request, "jumpto");
    return "/servlet?p=" + (isPageId(jumpto.c_str()) ? jumpto : "status");
}

const char* clientOf(HttpRequest& request) {
    const char* address = request.getRemoteAddr();
    return address != nullptr ? address : "an unknown address";
}

void keep(HttpSession& session, const char* name, const void* value) {
    session.setAttribute(name, const_cast<void*>(value));
}

} // namespace

void LoginPage::answer(HttpRequest& request, HttpResponse& response) {
    const std::string action = parameter(request, "q");
    if (action == "login" && isPost(request)) {
        signIn(request, response);
    } else if (action == "logout") {
        signOut(request, response);
    } else {
        showForm(request, response, "");
    }
}

void LoginPage::signIn(HttpRequest& request, HttpResponse& response) {
    const WebUser* user =
        m_phone.device.authenticate(parameter(request, "user"), parameter(request, "password"));
    if (user == nullptr) {
        WebDebug::getInstance()->warn("Wrong user name or password from %s", clientOf(request));
        response.setStatus(403);
        showForm(request, response, "Wrong user name or password.");
    } else if (!startSession(request, *user)) {
        response.setStatus(503);
        showForm(request, response, "Signing in is not possible at the moment.");
    } else {
        seeOther(response, landingPage(request));
    }
}

bool LoginPage::startSession(HttpRequest& request, const WebUser& user) {
    // Whoever knows the id of a session from before must not come to share the one that is signed
    // in.
    if (HttpSession* former = request.getSession(false)) {
        m_phone.signIns.end(former->getId());
        former->invalidate();
    }
    HttpSession* session = request.getSession(true);
    if (session == nullptr || !m_phone.signIns.start(session->getId(), user)) {
        return false;
    }
    keep(*session, kUserAttribute, &user);
    keep(*session, kRoleAttribute, user.role);
    keep(*session, kLanguageAttribute, user.language);
    WebDebug::getInstance()->info("Signed in: %s from %s", user.name, clientOf(request));
    return true;
}

void LoginPage::signOut(HttpRequest& request, HttpResponse& response) {
    const std::optional<SignIn> current = m_phone.signInOf(request);
    if (current && !mayChange(request, response, *current)) {
        return;
    }
    if (HttpSession* session = request.getSession(false)) {
        m_phone.signIns.end(session->getId());
        for (const char* name : {kUserAttribute, kRoleAttribute, kLanguageAttribute}) {
            session->removeAttribute(name);
        }
        // Invalidated now, it would count as being served for ever, and the container would never
        // free it; so it expires as soon as this request is over.
        session->setMaxInactiveInterval(1);
    }
    seeOther(response, kSignInForm);
}

} // namespace phone
