#ifndef NETWORK_PAGE_H
#define NETWORK_PAGE_H

#include "pages/settings_page.h"

namespace phone {

// The network settings. A change that could lock the user out is on trial, see network_trial.h:
// q=confirm (POST) keeps it, if sent from the new address, and q=undo (POST) undoes it at once.
//
// "From the new address" means that the Host header contains it. No network is connected, so
// SERVER_ADDR is always the address of the machine that runs the phone; a device compares that one,
// which no client can choose. Only a user who is signed in there can send the form's token, and the
// browser's cookies for the old address are not sent to the new one.
class NetworkPage final : public SettingsPage<Network> {
public:
    explicit NetworkPage(Phone& phone)
        : SettingsPage(phone, "network", &Settings::network, kNetworkFields) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    Outcome change(const Device::Edit& edit) override { return m_phone.network.change(edit); }
    void addMore(kit::Request& request, kit::Variables& variables) const override;
    void confirm(kit::Request& request, kit::Response& response);
    void undo(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
};

} // namespace phone

#endif
