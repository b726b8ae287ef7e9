#ifndef EVENT_LISTENER_H
#define EVENT_LISTENER_H

#include "phone.h"

#include "kit/container_rules.h"
#include "kit/plugin.h"

namespace phone {

// Does what events say (key=, number=, command=), if they come from an address that may send them,
// answers them with a line of text, and records all. An event brings no password and no token:
// the address is all that there is to tell friends by, so only those in the settings are followed.
class EventListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit EventListener(Phone& phone) : m_phone(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    bool mayCome(std::string_view address) const;
    bool follow(const kit::Event& event);

    Phone& m_phone;
};

} // namespace phone

#endif
