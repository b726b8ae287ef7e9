#ifndef CONTACTS_PAGE_H
#define CONTACTS_PAGE_H

#include "page.h"

#include <mutex>

namespace phone {

// The directory: a list with search and paging. q=add and q=remove change it, q=export sends it as
// CSV. A search text is sent by POST and kept with the session, since the container rejects
// addresses that contain "<", ">" or "script".
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
    void remove(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void add(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void finish(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Outcome& outcome, const char* message, const Values& values);
    void showList(kit::Request& request, kit::Response& response, kit::Variables variables) const;

    kit::SessionData<SearchText> m_searches{"contactsSearch"};
};

} // namespace phone

#endif
