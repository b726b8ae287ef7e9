#include "page.h"

#include "address.h"
#include "language.h"

#include "kit/flash.h"

#include <cassert>

namespace phone {
namespace {

constexpr const char* kPageIds[] = {
    "status",           "phone",    "accounts",        "network",          "audio",
    "contacts",         "security", "settings-config", "settings-upgrade", "settings-autop",
    "contacts-preview", "log"};

} // namespace

const char* const kSignInForm = "/servlet?p=login&q=loginForm";
const char* const kStatusPage = "/servlet?p=status";

bool isPageId(std::string_view id) {
    for (const char* known : kPageIds) {
        if (id == known) {
            return true;
        }
    }
    return false;
}

std::string_view pageToGoTo(kit::Request& request) {
    const std::string_view page = request.parameter("jumpto").value_or("");
    return isPageId(page) ? page : "";
}

std::string landingPage(kit::Request& request) {
    const std::string_view page = pageToGoTo(request);
    return page.empty() ? kStatusPage : addressOf(page, viewAskedFor(request));
}

void PageWriter::show(kit::Request& request, kit::Response& response, const char* name,
                      kit::Variables variables) {
    response.show(languageOf(request) + "/" + name, std::move(variables));
}

kit::Variables PageWriter::frame(kit::Request& request, const kit::SignIn& signIn) const {
    const auto state = m_phone.device.state();
    kit::Variables variables;
    variables.set("user", signIn.user)
        .set("token", signIn.token)
        .set("page", request.page())
        .set("here", returnTo(request.page(), viewOf(request)))
        .set("sessionIdle", state->settings.web.idleSeconds)
        .set("factoryPassword", state->settings.web.factoryPassword);
    return variables;
}

void PageWriter::refuse(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    if (isPageId(request.page())) {
        variables.set("again", addressOf(request.page(), viewOf(request)));
    }
    response.status(403);
    show(request, response, "refused.html", std::move(variables));
}

void PageWriter::showMessage(kit::Request& request, kit::Response& response,
                             const kit::SignIn& signIn, int status, const char* code) {
    response.status(status);
    show(request, response, "message.html", frame(request, signIn).set("code", code));
}

void SignedInPage::answer(kit::Request& request, kit::Response& response) {
    if (const auto signIn = m_phone.signIns.find(request)) {
        answer(request, response, *signIn);
    } else {
        response.seeOther(kSignInForm);
    }
}

bool SignedInPage::mayChange(kit::Request& request, kit::Response& response,
                             const kit::SignIn& signIn) {
    // Receiving an upload takes time; the user may have signed out, or been signed out, meanwhile.
    const bool stillSignedIn = m_phone.signIns.find(request).get() == &signIn;
    if (stillSignedIn && kit::isFromForm(request)) {
        return true;
    }
    refuse(request, response, signIn);
    return false;
}

void addForm(kit::Variables& variables, const Values& values, const Errors& errors) {
    for (const auto& [field, value] : values) {
        variables.set(field.c_str(), value);
    }
    for (const FieldError& error : errors) {
        const FieldError* const row[] = {&error};
        variables.rows((error.field + "Error").c_str(), row, [](const FieldError* wrong) {
            kit::Variables texts;
            texts.set("field", wrong->field).set("code", nameOf(wrong->code));
            if (wrong->limit) {
                texts.set("limit", *wrong->limit);
            }
            return texts;
        });
    }
    if (!errors.empty()) {
        variables.set("errorCount", errors.size());
    }
}

void finishAt(const std::string& address, const char* message, kit::Request& request,
              kit::Response& response) {
    kit::setFlash(request, message);
    response.seeOther(address);
}

void addFlash(kit::Request& request, kit::Variables& variables) {
    variables.set("flash", kit::takeFlash(request));
}

void addFailure(kit::Response& response, kit::Variables& variables, const Outcome& outcome) {
    assert(!outcome.done() && "outcome must not be done");
    response.status(outcome.saveFailed ? 500 : 422);
    variables.set("notSaved", outcome.saveFailed);
}

Values valuesSent(kit::Request& request, const std::vector<const char*>& fields) {
    Values values;
    for (const char* field : fields) {
        if (const auto value = request.parameter(field)) {
            values[field] = *value;
        }
    }
    return values;
}

} // namespace phone
