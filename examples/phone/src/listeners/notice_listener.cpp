#include "listeners/notice_listener.h"

#include "kit/container_rules.h"

namespace phone {

bool NoticeListener::admit(kit::Request& request, kit::Response& response) {
    if (const auto asked = kit::requestedStatus(kit::containerQuery(request))) {
        m_phone.statusWord.pageRequested(*asked != kit::DeviceStatus::Idle);
    }
    const Task task = m_phone.maintenance.progress().task;
    if (request.page() != "notice" || m_phone.statusWord.isCorrect(task)) {
        return true;
    }
    response.html(wordOf(task));
    return false;
}

} // namespace phone
