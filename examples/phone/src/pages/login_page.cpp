#include "pages/login_page.h"

#include "address.h"

#include "HttpSession.h"
#include "model/journal.h"

namespace phone {
namespace {

std::string clientOf(kit::Request& request) {
    const std::string_view address = request.remoteAddress();
    return std::string(address.empty() ? "an unknown address" : address);
}

} // namespace

void LoginPage::answer(kit::Request& request, kit::Response& response) {
    const std::string_view action = request.parameter("q").value_or("");
    if (m_phone.device.isClosed()) {
        refuse(request, response, 503, "closed");
    } else if (action == "login" && request.isPost()) {
        signIn(request, response);
    } else if (action == "logout") {
        signOut(request, response);
    } else if (m_phone.signIns.find(request)) {
        response.seeOther(landingPage(request));
    } else {
        showForm(request, response, {});
    }
}

void LoginPage::showForm(kit::Request& request, kit::Response& response, kit::Variables variables) {
    const bool hasEnded = request.isChecked("ended");
    std::string here = "login";
    variables.set("page", "login").set("token", kit::formToken(request, response));
    if (const std::string_view page = pageToGoTo(request); !page.empty()) {
        variables.set("jumpto", page).set("view", viewAskedFor(request));
        here += "&jumpto=" + returnTo(page, viewAskedFor(request));
    }
    variables.set("ended", hasEnded).set("here", here + (hasEnded ? "&ended=1" : ""));
    show(request, response, "login.html", std::move(variables));
}

void LoginPage::refuse(kit::Request& request, kit::Response& response, int status,
                       const char* message, kit::Variables variables) {
    response.status(status);
    variables.set("message", message).set("userName", request.parameter("user").value_or(""));
    showForm(request, response, std::move(variables));
}

void LoginPage::signIn(kit::Request& request, kit::Response& response) {
    const std::string user(request.parameter("user").value_or(""));
    std::string hash;
    const auto isRight = [&] {
        m_phone.device.preparePassword();
        hash = m_phone.device.state()->settings.web.passwordHash;
        return m_phone.device.authenticate(user, request.parameter("password").value_or(""));
    };
    if (!kit::isFromForm(request)) {
        refuse(request, response, 403, "stale");
    } else if (const long wait = m_phone.signIns.secondsToWait(request)) {
        response.header("Retry-After", std::to_string(wait));
        refuse(request, response, 429, "wait", kit::Variables().set("seconds", wait));
    } else if (!m_phone.signIns.check(request, isRight)) {
        Journal::getInstance()->warn("Wrong user name or password from %s",
                                     clientOf(request).c_str());
        refuse(request, response, 403, "wrong");
    } else {
        start(request, response, user);
        // A change of password signs out everyone, but may miss a sign-in at the same moment.
        if (m_phone.device.state()->settings.web.passwordHash != hash) {
            m_phone.signIns.end(request);
        }
    }
}

void LoginPage::start(kit::Request& request, kit::Response& response, const std::string& user) {
    if (!m_phone.signIns.start(request, response, user)) {
        refuse(request, response, 503, "unavailable");
        return;
    }
    if (HttpSession* session = request.session()) {
        session->setMaxInactiveInterval(m_phone.device.state()->settings.web.idleSeconds);
    }
    Journal::getInstance()->info("Signed in: %s from %s", user.c_str(), clientOf(request).c_str());
    response.seeOther(landingPage(request));
}

void LoginPage::signOut(kit::Request& request, kit::Response& response) {
    const auto current = m_phone.signIns.find(request);
    const bool isFromForm = kit::isFromForm(request);
    if (current && !isFromForm) {
        PageWriter::refuse(request, response, *current);
        return;
    }
    m_phone.signIns.end(request);
    // A link of another site comes without the user's cookies, and must not remove one of them.
    if (isFromForm) {
        // Without it, the session does not count as one that has ended by itself.
        kit::Cookie key{kKeyCookie, ""};
        key.maxAge = 0;
        response.cookie(key);
    }
    response.seeOther(kSignInForm);
}

} // namespace phone
