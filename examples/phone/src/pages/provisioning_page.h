#ifndef PROVISIONING_PAGE_H
#define PROVISIONING_PAGE_H

#include "page.h"

namespace phone {

// Auto-provisioning: POST with now=true in the address begins it. While it goes on the container
// has p=notice answered by the servlet of that name.
class ProvisioningPage final : public SignedInPage {
public:
    explicit ProvisioningPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
};

} // namespace phone

#endif
