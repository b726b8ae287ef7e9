#ifndef PHONE_PAGE_H
#define PHONE_PAGE_H

#include "page.h"

namespace phone {

// A drawing of the phone: display, lamps, and keys to press (POST, "key"), numbers to call
// ("number") and commands that simulate the other party ("command").
class PhonePage final : public SignedInPage {
public:
    explicit PhonePage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    bool act(kit::Request& request);
};

} // namespace phone

#endif
