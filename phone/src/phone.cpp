#include "phone.h"

#include "HttpRequest.h"
#include "HttpSession.h"

namespace phone {

std::optional<SignIn> Phone::signInOf(HttpRequest& request) const {
    HttpSession* session = request.getSession(false);
    return session != nullptr ? signIns.find(session->getId()) : std::nullopt;
}

} // namespace phone
