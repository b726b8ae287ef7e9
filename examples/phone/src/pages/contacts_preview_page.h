#ifndef CONTACTS_PREVIEW_PAGE_H
#define CONTACTS_PREVIEW_PAGE_H

#include "model/contacts_csv.h"
#include "page.h"

#include <memory>

namespace phone {

// Import of contacts: a file is uploaded (POST, q=preview, field "contacts"), what it would do is
// shown and held, and then done (POST, q=apply). What is held is dropped as soon as whoever
// uploaded it goes to another page: the container says so on every request for one.
class ContactsPreviewPage final : public SignedInPage {
public:
    explicit ContactsPreviewPage(Phone& phone) : SignedInPage(phone) {}

    void drop() override;

private:
    struct Preview {
        const kit::SignIn* owner; // to be compared, not used
        std::shared_ptr<const ImportPlan> plan;
    };

    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    // Null, and nothing, when the session has nothing or has gone.
    std::shared_ptr<Preview> heldFor(kit::Request& request) const;
    void forget(kit::Request& request);
    void preview(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void import(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);

    kit::SessionData<Preview> m_previews{"contactsPreview"};
};

} // namespace phone

#endif
