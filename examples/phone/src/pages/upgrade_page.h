#ifndef UPGRADE_PAGE_H
#define UPGRADE_PAGE_H

#include "page.h"

#include <string>

namespace phone {

// Firmware upload (q=upload, the image in the field "firmware"), download of the current image
// (q=download), restart (q=reboot) and factory reset (q=reset); anything else shows their forms. An
// uploaded image waits for a restart, until q=discard deletes it. q=restarting shows the progress
// of a restart or reset, and the forms once it is over. The container takes the status word from
// the address; the page does the work.
//
// Upload, restart and reset need the field "confirm". The latter two also need what their form
// contains if the page named it: "endCall" if they end a call, and "version" if an image is
// waiting, which they start.
class UpgradePage final : public ActionsPage {
public:
    explicit UpgradePage(Phone& phone);

private:
    void showForms(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void showPage(kit::Request& request, kit::Response& response, kit::Variables variables) const;
    void showRestart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void discard(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendImage(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void reboot(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void reset(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    const char* unknownTo(kit::Request& request) const;
    bool isConfirmed(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    std::string install(kit::Request& request, kit::Variables& variables);
    void upload(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void restart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                 Task task);

    const std::string m_receivedPath;
};

} // namespace phone

#endif
