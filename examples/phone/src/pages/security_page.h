#ifndef SECURITY_PAGE_H
#define SECURITY_PAGE_H

#include "page.h"

namespace phone {

// Changes the password (POST, q=password), sets who may send events and when sessions end (POST,
// q=access), and shows the current sessions. As long as the factory password is in use, it is the
// page of the first run: it only asks for another password, and then leads to the page that
// "jumpto" names. It has no id of its own, since an upgrade may keep an older servlet.xml.
class SecurityPage final : public ActionsPage {
public:
    explicit SecurityPage(Phone& phone);

private:
    void showSettings(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changePassword(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void setFirstPassword(kit::Request& request, kit::Response& response,
                          const kit::SignIn& signIn);
    Outcome setPassword(kit::Request& request, const kit::SignIn& signIn);
    void signOutAll(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changeAccess(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void finish(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Outcome& outcome, const Values& values);
    void showForms(kit::Request& request, kit::Response& response, kit::Variables variables,
                   const Values& values, const Errors& errors) const;
    void showFirstRun(kit::Request& request, kit::Response& response,
                      kit::Variables variables) const;
    bool isFirstRun() const { return m_phone.device.state()->settings.web.factoryPassword; }
    void addSignIns(kit::Request& request, kit::Variables& variables) const;
};

} // namespace phone

#endif
