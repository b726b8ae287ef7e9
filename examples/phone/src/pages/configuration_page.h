#ifndef CONFIGURATION_PAGE_H
#define CONFIGURATION_PAGE_H

#include "page.h"

namespace phone {

// The configuration as a file: q=export gives it, and q=import takes one (POST, field "config") and
// keeps the settings of before as a local copy, which q=localconfig takes back (type=import) or
// deletes (type=remove). The addresses of these forms are exact, since the container reads from
// them what the phone is doing; so their token is a field, and that of an upload is looked at when
// it has been received.
class ConfigurationPage final : public SignedInPage {
public:
    explicit ConfigurationPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    void change(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                const Device::Edit& edit, const std::string& result);
    void import(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void showPage(kit::Request& request, kit::Response& response, kit::Variables variables) const;
};

} // namespace phone

#endif
