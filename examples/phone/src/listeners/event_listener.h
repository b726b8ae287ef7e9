#ifndef EVENT_LISTENER_H
#define EVENT_LISTENER_H

#include "phone.h"

#include "kit/container_rules.h"
#include "kit/plugin.h"

namespace phone {

// Carries out events (key=, number=, command=) from allowed addresses, answers each event with a
// line of text, and records all of them. Events carry no password and no token, so only the
// addresses in the settings are trusted.
class EventListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit EventListener(Phone& phone) : m_phone(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    EventResult resultOf(const kit::Event& event, std::string_view sender);
    bool isAllowed(std::string_view address) const;
    bool carryOut(const kit::Event& event);

    Phone& m_phone;
};

} // namespace phone

#endif
