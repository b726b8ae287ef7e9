#include "pages/session_page.h"

#include "HttpRequest.h"
#include "HttpSession.h"
#include "session_attributes.h"

namespace phone {
namespace {

// Enough to tell two sessions apart, too little to take one over.
constexpr std::size_t kShownIdLength = 4;

void addRow(std::vector<PageVariables>& rows, const char* name, const char* value) {
    if (value != nullptr) {
        rows.emplace_back().add("name", name).add("value", value);
    }
}

std::vector<PageVariables> attributeRows(HttpSession& session) {
    std::vector<PageVariables> rows;
    const auto* user = static_cast<const WebUser*>(session.getAttribute(kUserAttribute));
    addRow(rows, kUserAttribute, user != nullptr ? user->name : nullptr);
    for (const char* name : {kRoleAttribute, kLanguageAttribute}) {
        addRow(rows, name, static_cast<const char*>(session.getAttribute(name)));
    }
    return rows;
}

} // namespace

void SessionPage::answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) {
    HttpSession* session = request.getSession(false);
    if (session == nullptr) {
        seeOther(response, kSignInForm);
        return;
    }
    PageVariables variables = frameOf(signIn);
    variables.add("id", session->getId().substr(0, kShownIdLength))
        .add("created", std::to_string(session->getCreateTime()))
        .add("accessed", std::to_string(session->getLastAccessedTime()))
        .add("interval", std::to_string(session->getMaxInactiveInterval()))
        .addLoop("attributes", attributeRows(*session));
    showTemplate(response, "session.html", std::move(variables));
}

} // namespace phone
