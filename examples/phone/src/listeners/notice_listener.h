#ifndef NOTICE_LISTENER_H
#define NOTICE_LISTENER_H

#include "phone.h"

#include "kit/plugin.h"

namespace phone {

// Lets the container answer p=notice unless its status word is wrong; then sends the correct one.
class NoticeListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit NoticeListener(Phone& phone) : m_phone(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    Phone& m_phone;
};

} // namespace phone

#endif
