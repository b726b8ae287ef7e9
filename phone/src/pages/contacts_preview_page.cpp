#include "pages/contacts_preview_page.h"

#include "HttpRequest.h"

namespace phone {

void ContactsPreviewPage::destroy() {
    hold({});
}

void ContactsPreviewPage::answer(HttpRequest& request, HttpResponse& response,
                                 const SignIn& signIn) {
    if (parameter(request, "q") == "preview") {
        if (!mayChange(request, response, signIn)) {
            return;
        }
        hold(readContacts(parameter(request, "contacts")));
    }
    PageVariables variables = frameOf(signIn);
    variables.addLoop("contacts", rows());
    showTemplate(response, "contacts.html", std::move(variables));
}

void ContactsPreviewPage::hold(std::vector<Contact> contacts) {
    std::lock_guard<std::mutex> lock(m_lock);
    m_contacts.swap(contacts);
}

std::vector<PageVariables> ContactsPreviewPage::rows() const {
    std::lock_guard<std::mutex> lock(m_lock);
    std::vector<PageVariables> rows;
    for (const Contact& contact : m_contacts) {
        rows.emplace_back().add("name", contact.name).add("number", contact.number);
    }
    return rows;
}

} // namespace phone
