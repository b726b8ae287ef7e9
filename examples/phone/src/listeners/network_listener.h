#ifndef NETWORK_LISTENER_H
#define NETWORK_LISTENER_H

#include "phone.h"

#include "kit/plugin.h"

namespace phone {

// Undoes a change of the network whose time for confirmation is over, before a request can see it.
class NetworkListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit NetworkListener(Phone& phone) : m_phone(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    Phone& m_phone;
};

} // namespace phone

#endif
