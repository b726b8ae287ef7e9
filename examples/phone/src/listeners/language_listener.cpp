#include "listeners/language_listener.h"

#include "language.h"

namespace phone {

bool LanguageListener::admit(kit::Request& request, kit::Response&) {
    request.raw().setLocal(preferredLanguage(request));
    return true;
}

} // namespace phone
