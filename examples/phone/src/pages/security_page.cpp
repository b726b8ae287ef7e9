#include "pages/security_page.h"

#include "address.h"

#include "HttpSession.h"
#include "model/journal.h"

#include <algorithm>

namespace phone {
namespace {

kit::Variables signInRow(const std::shared_ptr<const kit::SignIn>& signIn) {
    return kit::Variables()
        .set("user", signIn->user)
        .set("since", localTimeText(signIn->since))
        .set("from", signIn->address);
}

} // namespace

SecurityPage::SecurityPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&SecurityPage::showSettings);
    m_actions.on("password", &SecurityPage::changePassword);
    m_actions.on("signOutAll", &SecurityPage::signOutAll);
    m_actions.on("access", &SecurityPage::changeAccess);
}

void SecurityPage::showSettings(kit::Request& request, kit::Response& response,
                                const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    showForms(request, response, std::move(variables),
              valuesOf(m_phone.device.state()->settings.web), {});
}

void SecurityPage::changePassword(kit::Request& request, kit::Response& response,
                                  const kit::SignIn& signIn) {
    if (isFirstRun()) {
        setFirstPassword(request, response, signIn);
        return;
    }
    if (const long wait = m_phone.signIns.secondsToWait(request)) {
        response.status(429);
        response.header("Retry-After", std::to_string(wait));
        kit::Variables variables = frame(request, signIn);
        variables.set("seconds", wait);
        showForms(request, response, std::move(variables),
                  valuesOf(m_phone.device.state()->settings.web), {});
        return;
    }
    Outcome outcome;
    const bool known = m_phone.signIns.check(request, [&] {
        outcome = setPassword(request, signIn);
        return std::none_of(
            outcome.errors.begin(), outcome.errors.end(),
            [](const FieldError& error) { return error.code == ErrorCode::wrongPassword; });
    });
    if (known) {
        m_phone.signIns.attemptSucceeded(request);
    }
    finish(request, response, signIn, outcome, valuesOf(m_phone.device.state()->settings.web));
}

void SecurityPage::setFirstPassword(kit::Request& request, kit::Response& response,
                                    const kit::SignIn& signIn) {
    const Outcome outcome = setPassword(request, signIn);
    if (!outcome.done()) {
        finish(request, response, signIn, outcome, {});
    } else if (const std::string next = landingPage(request); next == kStatusPage) {
        finishAt(next, "passwordSet", request, response);
    } else {
        response.seeOther(next); // the page that was asked for is result enough
    }
}

Outcome SecurityPage::setPassword(kit::Request& request, const kit::SignIn& signIn) {
    const auto entered = [&](const char* field) {
        return std::string(request.parameter(field).value_or(""));
    };
    Outcome outcome = m_phone.device.changePassword(entered("oldPassword"), entered("newPassword"),
                                                    entered("repeat"));
    if (outcome.done()) {
        // Anyone who knew the old password must sign in again.
        m_phone.signIns.endOthers(request);
        Journal::getInstance()->info("The password of %s was changed", signIn.user.c_str());
    }
    return outcome;
}

void SecurityPage::signOutAll(kit::Request& request, kit::Response& response,
                              const kit::SignIn& signIn) {
    Journal::getInstance()->info("All sessions were signed out by %s", signIn.user.c_str());
    m_phone.signIns.endOthers(request);
    m_phone.signIns.end(request);
    response.seeOther(kSignInForm);
}

void SecurityPage::changeAccess(kit::Request& request, kit::Response& response,
                                const kit::SignIn& signIn) {
    if (isFirstRun()) {
        response.seeOther("/servlet?p=security"); // another password comes first
        return;
    }
    const Values values = valuesSent(request, kWebAccessFields);
    const Outcome outcome =
        m_phone.device.change([&](State& state) { return readValues(values, state.settings.web); });
    if (outcome.done()) {
        if (HttpSession* session = request.session()) {
            session->setMaxInactiveInterval(m_phone.device.state()->settings.web.idleSeconds);
        }
    }
    finish(request, response, signIn, outcome, values);
}

void SecurityPage::finish(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                          const Outcome& outcome, const Values& values) {
    if (outcome.done()) {
        finishAt("/servlet?p=security", "saved", request, response);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, outcome);
    showForms(request, response, std::move(variables), values, outcome.errors);
}

void SecurityPage::showForms(kit::Request& request, kit::Response& response,
                             kit::Variables variables, const Values& values,
                             const Errors& errors) const {
    addForm(variables, values, errors);
    if (isFirstRun()) {
        showFirstRun(request, response, std::move(variables));
        return;
    }
    addSignIns(request, variables);
    show(request, response, "security.html", std::move(variables));
}

void SecurityPage::showFirstRun(kit::Request& request, kit::Response& response,
                                kit::Variables variables) const {
    const std::string_view wanted = pageToGoTo(request);
    const std::string_view view = viewAskedFor(request);
    // Leads back here, through the listener, as long as the password is not set.
    variables.set("here", wanted.empty() ? "status" : returnTo(wanted, view));
    if (!wanted.empty()) {
        variables.set("jumpto", wanted).set("view", view);
    }
    show(request, response, "first-run.html", std::move(variables));
}

void SecurityPage::addSignIns(kit::Request& request, kit::Variables& variables) const {
    const auto own = m_phone.signIns.find(request);
    auto others = m_phone.signIns.all();
    others.erase(std::remove(others.begin(), others.end(), own), others.end());
    if (own) {
        variables.set("since", localTimeText(own->since)).set("from", own->address);
    }
    variables.rows("others", others, signInRow);
}

} // namespace phone
