#ifndef CONFIGURATION_PAGE_H
#define CONFIGURATION_PAGE_H

#include "page.h"

namespace phone {

// The configuration as a file: q=export sends it. q=import (POST, field "config") reads one and
// keeps the previous settings as a local copy, which q=localconfig restores (type=import) or
// deletes (type=remove). The container reads the phone's status word from the addresses of these
// forms, so they must not contain a token: it is a form field, which an upload has only once it was
// received.
class ConfigurationPage final : public ActionsPage {
public:
    explicit ConfigurationPage(Phone& phone);

private:
    void showAll(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendXml(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changeLocalCopy(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void change(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Device::Edit& edit, const char* message);
    void import(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void showPage(kit::Request& request, kit::Response& response, kit::Variables variables) const;
};

} // namespace phone

#endif
