#ifndef SIGN_IN_LISTENER_H
#define SIGN_IN_LISTENER_H

#include "phone.h"

#include "kit/plugin.h"

namespace phone {

// Sends those who are not signed in to the sign-in form, which brings them back to the page that
// they asked for; scripts get status 403. Let through: the form itself, the choice of a language,
// the maintenance word, and events, which no servlet gets to see. Notes who the visitor is.
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
