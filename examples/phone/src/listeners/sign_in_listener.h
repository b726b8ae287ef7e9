#ifndef SIGN_IN_LISTENER_H
#define SIGN_IN_LISTENER_H

#include "phone.h"

#include "kit/plugin.h"

namespace phone {

// Redirects users who are not signed in to the sign-in form, which returns them to the page they
// requested; scripts get status 403. Redirects users who signed in with the factory password to the
// page on which they set another, which then leads on; scripts get status 409. Lets through the
// form itself, the choice of a language, the status word, and events, which no servlet receives.
// Stores the visitor (visit.h).
class SignInListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit SignInListener(Phone& phone) : m_phone(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    Phone& m_phone;
};

} // namespace phone

#endif
