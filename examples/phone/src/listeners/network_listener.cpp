#include "listeners/network_listener.h"

namespace phone {

bool NetworkListener::admit(kit::Request&, kit::Response&) {
    m_phone.network.settle();
    return true;
}

} // namespace phone
