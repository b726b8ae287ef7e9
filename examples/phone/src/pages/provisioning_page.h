#ifndef PROVISIONING_PAGE_H
#define PROVISIONING_PAGE_H

#include "page.h"

namespace phone {

// Auto-provisioning: POST with now=true in the address starts it. While it runs, the container lets
// the servlet "notice" answer p=notice.
class ProvisioningPage final : public SignedInPage {
public:
    explicit ProvisioningPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
};

} // namespace phone

#endif
