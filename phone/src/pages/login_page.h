#ifndef LOGIN_PAGE_H
#define LOGIN_PAGE_H

#include "page.h"

namespace phone {

// Signing in and out. q=login signs in with the fields "user" and "password", q=logout signs out,
// anything else shows the form. "jumpto" names the page to go on to, the status page by default.
class LoginPage final : public Page {
public:
    explicit LoginPage(Phone& phone) : Page(phone) {}

private:
    void answer(HttpRequest& request, HttpResponse& response) override;
    void signIn(HttpRequest& request, HttpResponse& response);
    void signOut(HttpRequest& request, HttpResponse& response);
    bool startSession(HttpRequest& request, const WebUser& user);
};

} // namespace phone

#endif
