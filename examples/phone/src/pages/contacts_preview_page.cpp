#include "pages/contacts_preview_page.h"

#include "kit/upload.h"
#include "visit.h"

namespace phone {
namespace {

kit::Variables addedRow(const Contact& contact) {
    return kit::Variables().set("name", contact.name).set("number", contact.number);
}

kit::Variables changedRow(const ImportPlan::Change& change) {
    return kit::Variables()
        .set("name", change.name)
        .set("before", change.oldNumber)
        .set("number", change.number);
}

// Returns the code of the message for a row: for a line as a whole, badCharacters means that it
// could not be split into columns.
const char* messageCodeOf(const FieldError& error) {
    const bool isLine = error.field == "line" && error.code == ErrorCode::badCharacters;
    return isLine ? "badLine" : nameOf(error.code);
}

kit::Variables refusedRow(const ImportPlan::Refused& refused) {
    kit::Variables row;
    row.set("line", refused.line)
        .set("text", refused.text)
        .set("field", refused.error.field)
        .set("code", messageCodeOf(refused.error));
    if (refused.error.limit) {
        row.set("limit", *refused.error.limit);
    }
    return row;
}

void addPlan(kit::Variables& variables, const ImportPlan& plan) {
    variables.set("preview", true)
        .set("addedCount", plan.added.size())
        .set("changedCount", plan.changed.size())
        .set("unchangedCount", plan.unchanged)
        .set("refusedCount", plan.refusedCount)
        .set("canApply", !plan.added.empty() || !plan.changed.empty())
        .rows("added", plan.added, addedRow)
        .rows("changed", plan.changed, changedRow)
        .rows("refused", plan.refused, refusedRow);
}

} // namespace

ContactsPreviewPage::ContactsPreviewPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&ContactsPreviewPage::showPreview);
    m_actions.onUpload("preview", &ContactsPreviewPage::preview);
    m_actions.on("apply", &ContactsPreviewPage::import);
}

void ContactsPreviewPage::drop() {
    m_previews.eraseIf([](const Preview& preview) { return preview.owner == visitor; });
}

std::shared_ptr<ContactsPreviewPage::Preview>
ContactsPreviewPage::heldFor(kit::Request& request) const {
    HttpSession* session = request.session();
    return session ? m_previews.find(*session) : nullptr;
}

void ContactsPreviewPage::forget(kit::Request& request) {
    if (HttpSession* session = request.session()) {
        m_previews.erase(*session);
    }
}

void ContactsPreviewPage::showPreview(kit::Request& request, kit::Response& response,
                                      const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    if (const auto held = heldFor(request)) {
        addPlan(variables, *held->plan);
    }
    show(request, response, "contacts-preview.html", std::move(variables));
}

void ContactsPreviewPage::preview(kit::Request& request, kit::Response& response,
                                  const kit::SignIn& signIn) {
    std::shared_ptr<const ImportPlan> plan;
    const char* fault = "busy";
    if (const std::unique_lock<std::mutex> receiving(m_phone.receiving, std::try_to_lock);
        receiving) {
        const auto file = kit::readUpload(request, "contacts", kMaxCsvBytes);
        // The token may be a field of the upload, so check it once that was received.
        if (!mayChange(request, response, signIn)) {
            return;
        }
        forget(request);
        fault = file.problem() == kit::Problem::TooLong ? "tooLarge" : "empty";
        if (file) {
            plan =
                std::make_shared<ImportPlan>(planImport(*file, m_phone.device.state()->directory));
        }
    }
    HttpSession* session = request.session();
    if (plan && session) {
        m_previews.put(*session, std::make_shared<Preview>(Preview{&signIn, plan}));
        response.seeOther("/servlet?p=contacts-preview");
        return;
    }
    response.status(422);
    show(request, response, "contacts-preview.html",
         std::move(frame(request, signIn).set("result", fault)));
}

void ContactsPreviewPage::import(kit::Request& request, kit::Response& response,
                                 const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    const auto held = heldFor(request);
    if (!held) {
        response.status(409);
        variables.set("result", "gone");
        show(request, response, "contacts-preview.html", std::move(variables));
        return;
    }
    const Outcome outcome = m_phone.device.change(
        [&](State& state) { return applyImport(*held->plan, state.directory); });
    if (outcome.done()) {
        forget(request);
        finishAt("/servlet?p=contacts", "contactsImported", request, response);
        return;
    }
    addFailure(response, variables, outcome);
    variables.set("result", outcome.saveFailed ? "notSaved" : "tooMany");
    addPlan(variables, *held->plan);
    show(request, response, "contacts-preview.html", std::move(variables));
}

} // namespace phone
