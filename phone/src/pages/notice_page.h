#ifndef NOTICE_PAGE_H
#define NOTICE_PAGE_H

#include "page.h"

namespace phone {

// The maintenance word while the phone is being provisioned. The container answers with all the
// other words itself.
class NoticePage final : public Page {
public:
    explicit NoticePage(Phone& phone) : Page(phone) {}

private:
    void answer(HttpRequest& request, HttpResponse& response) override;
};

} // namespace phone

#endif
