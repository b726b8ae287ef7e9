#ifndef LANGUAGE_LISTENER_H
#define LANGUAGE_LISTENER_H

#include "kit/plugin.h"

namespace phone {

// Gives every request the language of its pages, so that the template variable "local" is one that
// there are pages in.
class LanguageListener final : public kit::Listener {
public:
    bool admit(kit::Request& request, kit::Response& response) override;
};

} // namespace phone

#endif
