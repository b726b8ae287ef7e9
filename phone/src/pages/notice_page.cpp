#include "pages/notice_page.h"

#include "HttpResponse.h"

namespace phone {

void NoticePage::answer(HttpRequest&, HttpResponse& response) {
    setPageHeaders(response, kHtml);
    response.print("autoprovision");
}

} // namespace phone
