// What the library exports: the creation functions that servlet.xml names.

#include "listeners/event_listener.h"
#include "listeners/sign_in_listener.h"
#include "pages/contacts_preview_page.h"
#include "pages/login_page.h"
#include "pages/notice_page.h"
#include "pages/session_page.h"
#include "pages/status_page.h"
#include "pages/upgrade_page.h"
#include "phone.h"
#include "places.h"

#include <memory>
#include <new>
#include <vector>

namespace phone {
namespace {

Phone& thePhone() {
    static Phone phone;
    return phone;
}

template <typename Servlet, typename... Rest>
HttpServlet* newServlet(Rest... rest) {
    try {
        return new Servlet(thePhone(), rest...);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <typename Listener>
HttpListener* newListener() {
    try {
        // The container never frees a listener; the library does as it is closed.
        static std::vector<std::unique_ptr<Listener>> listeners;
        listeners.push_back(std::make_unique<Listener>(thePhone()));
        return listeners.back().get();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace
} // namespace phone

extern "C" {

HttpListener* createEventListener() {
    return phone::newListener<phone::EventListener>();
}
HttpListener* createSignInListener() {
    return phone::newListener<phone::SignInListener>();
}

HttpServlet* createLoginPage() {
    return phone::newServlet<phone::LoginPage>();
}
HttpServlet* createStatusPage() {
    return phone::newServlet<phone::StatusPage>();
}
HttpServlet* createSessionPage() {
    return phone::newServlet<phone::SessionPage>();
}
HttpServlet* createNoticePage() {
    return phone::newServlet<phone::NoticePage>();
}
HttpServlet* createContactsPreviewPage() {
    return phone::newServlet<phone::ContactsPreviewPage>();
}
HttpServlet* createUpgradePage() {
    return phone::newServlet<phone::UpgradePage>(phone::firmwareImagePath());
}

} // extern "C"
