#include "listeners/language_listener.h"

#include "language.h"

namespace phone {

bool LanguageListener::admit(kit::Request& request, kit::Response&) {
    request.setLanguage(preferredLanguage(request));
    return true;
}

} // namespace phone
