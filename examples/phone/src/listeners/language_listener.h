#ifndef LANGUAGE_LISTENER_H
#define LANGUAGE_LISTENER_H

#include "kit/plugin.h"

namespace phone {

// Sets the template variable "local" of every request to a language that has pages.
class LanguageListener final : public kit::Listener {
public:
    bool admit(kit::Request& request, kit::Response& response) override;
};

} // namespace phone

#endif
