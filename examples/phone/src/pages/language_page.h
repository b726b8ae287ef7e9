#ifndef LANGUAGE_PAGE_H
#define LANGUAGE_PAGE_H

#include "page.h"

namespace phone {

// Keeps the choice of a language ("to") in a cookie, for everybody, signed in or not, and goes back
// to the page "back". It changes nothing but what the asking browser shows, so it takes no token.
class LanguagePage final : public kit::Page {
private:
    void answer(kit::Request& request, kit::Response& response) override;
};

} // namespace phone

#endif
