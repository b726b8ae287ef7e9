#ifndef SESSION_PAGE_H
#define SESSION_PAGE_H

#include "page.h"

namespace phone {

// What the service knows about this client's session.
class SessionPage final : public SignedInPage {
public:
    explicit SessionPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) override;
};

} // namespace phone

#endif
