#ifndef STATUS_DATA_PAGE_H
#define STATUS_DATA_PAGE_H

#include "page.h"

namespace phone {

// The live data of the pages, as JSON for their script. With the parameter "since", which is the
// number of a sample, also the history from that sample on.
class StatusDataPage final : public SignedInPage {
public:
    explicit StatusDataPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
};

} // namespace phone

#endif
