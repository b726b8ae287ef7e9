#include "pages/notice_page.h"

namespace phone {

void NoticePage::answer(kit::Request&, kit::Response& response) {
    response.html(wordOf(m_phone.maintenance.progress().task));
}

} // namespace phone
