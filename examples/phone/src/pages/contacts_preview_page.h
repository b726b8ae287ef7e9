#ifndef CONTACTS_PREVIEW_PAGE_H
#define CONTACTS_PREVIEW_PAGE_H

#include "model/contacts_csv.h"
#include "page.h"

#include <memory>

namespace phone {

// Imports contacts: a file is uploaded (POST, q=preview, field "contacts"), its preview is shown
// (page=N) and kept, its columns are corrected (POST, q=columns, a number from 0 for each field of
// a contact), and then it is applied (POST, q=apply). The preview is dropped as soon as the user
// who uploaded it opens another page: the container calls drop() on every request for one.
class ContactsPreviewPage final : public ActionsPage {
public:
    explicit ContactsPreviewPage(Phone& phone);

    void drop() override;

private:
    struct Preview {
        const kit::SignIn* owner; // compare only
        std::shared_ptr<const std::string> text;
        std::shared_ptr<const ImportPlan> plan;
    };

    void showPreview(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    // Returns null if the session has no preview or has ended.
    std::shared_ptr<Preview> heldFor(kit::Request& request) const;
    void forget(kit::Request& request);
    void preview(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void chooseColumns(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void showGone(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void keep(kit::Request& request, Preview preview);
    void import(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);

    kit::SessionData<Preview> m_previews{"contactsPreview"};
};

} // namespace phone

#endif
