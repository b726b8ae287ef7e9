#ifndef SECURITY_PAGE_H
#define SECURITY_PAGE_H

#include "page.h"

namespace phone {

// Changes the password (POST, q=password), sets who may send events and when sessions end (POST,
// q=access), and shows the current sessions.
class SecurityPage final : public ActionsPage {
public:
    explicit SecurityPage(Phone& phone);

private:
    void showSettings(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changePassword(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changeAccess(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void finish(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Outcome& outcome, const Values& values);
    void showForms(kit::Request& request, kit::Response& response, kit::Variables variables,
                   const Values& values, const Errors& errors) const;
    void addSignIns(kit::Request& request, kit::Variables& variables) const;
};

} // namespace phone

#endif
