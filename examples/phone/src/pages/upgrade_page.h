#ifndef UPGRADE_PAGE_H
#define UPGRADE_PAGE_H

#include "page.h"

#include <string>

namespace phone {

// Firmware upload (q=upload, the image in the field "firmware"), the image of now (q=download),
// restart (q=reboot) and return to factory settings (q=reset); anything else shows the forms for
// them. The container reads from the address what the phone is asked to do; the page does it.
class UpgradePage final : public SignedInPage {
public:
    explicit UpgradePage(Phone& phone)
        : SignedInPage(phone), m_receivedPath(phone.files.firmwareImage + ".received") {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    void upload(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void restart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                 Task task);

    const std::string m_receivedPath;
};

} // namespace phone

#endif
