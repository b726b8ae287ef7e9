#ifndef NOTICE_PAGE_H
#define NOTICE_PAGE_H

#include "page.h"

namespace phone {

// Answers p=notice while the phone is being provisioned; at all other times the container does.
class NoticePage final : public kit::Page {
public:
    // `phone` must outlive the page.
    explicit NoticePage(Phone& phone) : m_phone(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response) override;

    Phone& m_phone;
};

} // namespace phone

#endif
