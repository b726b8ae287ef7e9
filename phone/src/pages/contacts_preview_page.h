#ifndef CONTACTS_PREVIEW_PAGE_H
#define CONTACTS_PREVIEW_PAGE_H

#include "contacts.h"
#include "page.h"

#include <mutex>

namespace phone {

// Shows how the lines of the field "contacts" (POST, q=preview) would be read. They are held until
// any other page is asked for.
class ContactsPreviewPage final : public SignedInPage {
public:
    explicit ContactsPreviewPage(Phone& phone) : SignedInPage(phone) {}

    // Drops the preview. Any thread, while others are in service().
    void destroy() override;

private:
    void answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) override;
    void hold(std::vector<Contact> contacts);
    std::vector<PageVariables> rows() const;

    mutable std::mutex m_lock;
    std::vector<Contact> m_contacts; // guarded by m_lock
};

} // namespace phone

#endif
