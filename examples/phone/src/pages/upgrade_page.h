#ifndef UPGRADE_PAGE_H
#define UPGRADE_PAGE_H

#include "page.h"

#include <string>

namespace phone {

// Firmware upload (q=upload, the image in the field "firmware"), download of the current image
// (q=download), restart (q=reboot) and factory reset (q=reset); anything else shows their forms.
// The container takes the status word from the address; the page does the work.
class UpgradePage final : public ActionsPage {
public:
    explicit UpgradePage(Phone& phone);

private:
    void showForms(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendImage(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void reboot(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void reset(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void upload(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void restart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                 Task task);

    const std::string m_receivedPath;
};

} // namespace phone

#endif
