#ifndef LOGIN_PAGE_H
#define LOGIN_PAGE_H

#include "page.h"

namespace phone {

// Signs in and out. q=login signs in with the fields "user" and "password", q=logout signs out,
// anything else shows the form. While the phone
// has no password, says how its owner gets back in. "jumpto" names the page to open next, by
// default the status page.
class LoginPage final : public LocalPage {
public:
    explicit LoginPage(Phone& phone) : LocalPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response) override;
    // Shows the form with these variables more.
    void showForm(kit::Request& request, kit::Response& response, kit::Variables variables);
    // Shows the form with one of the messages in login.html.
    void refuse(kit::Request& request, kit::Response& response, int status, const char* message,
                kit::Variables variables = {});
    void signIn(kit::Request& request, kit::Response& response);
    void signOut(kit::Request& request, kit::Response& response);
    void start(kit::Request& request, kit::Response& response, const std::string& user);
};

} // namespace phone

#endif
