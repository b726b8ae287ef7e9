#ifndef STATUS_PAGE_H
#define STATUS_PAGE_H

#include "page.h"

namespace phone {

// The model, the network connections and the recent events.
class StatusPage final : public SignedInPage {
public:
    explicit StatusPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
};

} // namespace phone

#endif
