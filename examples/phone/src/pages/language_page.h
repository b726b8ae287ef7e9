#ifndef LANGUAGE_PAGE_H
#define LANGUAGE_PAGE_H

#include "page.h"

namespace phone {

// Stores the chosen language ("to") in a cookie and redirects to the page "back". Works without
// signing in. Needs no token: it only changes what this browser shows.
class LanguagePage final : public kit::Page {
private:
    void answer(kit::Request& request, kit::Response& response) override;
};

} // namespace phone

#endif
