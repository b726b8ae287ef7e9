#include "listeners/not_found_listener.h"

#include "kit/not_found.h"

namespace phone {

bool NotFoundListener::admit(kit::Request& request, kit::Response& response) {
    if (!kit::isForUnknownPage(request)) {
        return true;
    }
    static_cast<kit::Page&>(m_page).answer(request, response);
    return false;
}

} // namespace phone
