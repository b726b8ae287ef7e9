#ifndef CONTACTS_PAGE_H
#define CONTACTS_PAGE_H

#include "page.h"
#include "pages/removed_contact.h"

#include <mutex>

namespace phone {

// The directory: a list with search, index and paging. q=add, q=save and q=remove change it,
// q=restore undoes the last q=remove of the session, q=export sends the contacts as CSV.
//   page=N     shows this page
//   at=KEY     shows the page with this contact, see keyOf()
//   edit=KEY   shows the same, with a form in place of the contact
// A search text is sent by POST and kept with the session, since the container rejects addresses
// that contain "<", ">" or "script".
class ContactsPage final : public ActionsPage {
public:
    explicit ContactsPage(Phone& phone);

private:
    class SearchText {
    public:
        void set(std::string_view text);
        std::string get() const;

    private:
        mutable std::mutex m_lock;
        std::string m_text; // guarded by m_lock
    };

    void showAll(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendCsv(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void forgetSearch(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void search(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void add(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void save(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void remove(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void restore(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void showFailure(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                     const Outcome& outcome, const char* form, const Values& values);
    std::string addressBeside(kit::Request& request, std::string_view name) const;
    Directory::Page listFor(kit::Request& request, const Directory& directory,
                            std::string_view name) const;
    std::string searchOf(kit::Request& request) const;
    void showList(kit::Request& request, kit::Response& response, kit::Variables variables) const;

    kit::SessionData<SearchText> m_searches{"contactsSearch"};
    kit::SessionData<RemovedContact> m_removed{"contactsRemoved"};
};

} // namespace phone

#endif
