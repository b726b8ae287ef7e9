#ifndef UPGRADE_PAGE_H
#define UPGRADE_PAGE_H

#include "page.h"

#include <mutex>
#include <string>

namespace phone {

// Firmware upload (q=upload, the image in the field "firmware"), restart (q=reboot) and return to
// factory settings (q=reset); anything else shows the forms for them. The container reads from
// the address of the request what the phone is asked to do; the page says that it was asked.
class UpgradePage final : public SignedInPage {
public:
    // The image is put at `imagePath`, and on its way there beside it.
    UpgradePage(Phone& phone, const char* imagePath)
        : SignedInPage(phone), m_imagePath(imagePath), m_receivedPath(m_imagePath + ".received") {}

private:
    void answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) override;
    void upload(HttpRequest& request, PageVariables& variables);
    // The size of the image that has come in the place of the one before; 0 when none was received,
    // and that one stands.
    long receiveImage(HttpRequest& request);

    const std::string m_imagePath;
    const std::string m_receivedPath;
    std::mutex m_receiving; // one upload at a time has the path
};

} // namespace phone

#endif
