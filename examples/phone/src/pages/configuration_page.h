#ifndef CONFIGURATION_PAGE_H
#define CONFIGURATION_PAGE_H

#include "page.h"

namespace phone {

// The configuration as a file: q=export sends it, and q=backup (POST, fields "passphrase" and
// "repeat") sends an encrypted backup. q=import (POST, fields "config", "filePassphrase" and
// "confirm") reads either and keeps the previous settings as a local copy, which q=localconfig
// restores (type=import, field "confirm") or deletes (type=remove). The container reads the phone's
// status word from the addresses of these forms, so they must not contain a token: it is a form
// field, which an upload has only once it was received.
class ConfigurationPage final : public ActionsPage {
public:
    explicit ConfigurationPage(Phone& phone);

private:
    void showAll(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendXml(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendBackup(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void changeLocalCopy(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void change(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Device::Edit& edit, const char* message);
    void showInvalidFields(kit::Request& request, kit::Response& response,
                           const kit::SignIn& signIn, const Errors& errors);
    void showRefusal(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                     int status, const char* result);
    void import(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void importBackup(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                      std::string_view file);
    void showPage(kit::Request& request, kit::Response& response, kit::Variables variables) const;
};

} // namespace phone

#endif
