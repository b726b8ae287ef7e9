#ifndef PROVISIONING_PAGE_H
#define PROVISIONING_PAGE_H

#include "pages/settings_page.h"

namespace phone {

// Auto-provisioning: the form for the server, and POST with now=true in the address starts a run.
// While it runs, the container lets the servlet "notice" answer p=notice.
class ProvisioningPage final : public SettingsPage<Provisioning> {
public:
    explicit ProvisioningPage(Phone& phone)
        : SettingsPage(phone, "settings-autop", &Settings::provisioning, kProvisioningFields) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    void run(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    // Returns why no run can begin, as in settings-autop.html; null after one has begun.
    const char* start(const std::string& server, const std::string& user);
    Values shownAgain(Values values) const override;
    void addMore(kit::Request& request, kit::Variables& variables) const override;
};

} // namespace phone

#endif
