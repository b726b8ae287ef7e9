#ifndef LOG_PAGE_H
#define LOG_PAGE_H

#include "page.h"

namespace phone {

// What the phone has logged, newest first. "level" is "error", "warning" or "info", and selects the
// records that are at least as severe; q=download sends them as a text file.
class LogPage final : public ActionsPage {
public:
    explicit LogPage(Phone& phone);

private:
    void showLog(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
    void sendText(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);
};

} // namespace phone

#endif
