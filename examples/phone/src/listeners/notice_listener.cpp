#include "listeners/notice_listener.h"

#include "phone_event.h"

namespace phone {
namespace {

// The texts in an address by which the container takes the phone for busy.
bool namesTask(std::string_view query) {
    for (std::string_view text :
         {"reboot=true", "q=reboot", "p=settings-upgrade&q=reset", "now=true"}) {
        if (query.find(text) != std::string_view::npos) {
            return true;
        }
    }
    return query == "p=settings-config&q=import" ||
           query == "p=settings-config&q=localconfig&type=import" ||
           query == "p=settings-config&q=localconfig&type=remove";
}

} // namespace

bool NoticeListener::admit(kit::Request& request, kit::Response& response) {
    // The container looks for a task first, in an address that says p=notice too.
    const bool names = namesTask(queryOf(request));
    if (names || !leavesStatusAlone(request)) {
        m_phone.statusWord.pageAsked(names);
    }
    const Task task = m_phone.maintenance.progress().task;
    if (request.page() != "notice" || m_phone.statusWord.isRight(task)) {
        return true;
    }
    response.html(wordOf(task));
    return false;
}

} // namespace phone
