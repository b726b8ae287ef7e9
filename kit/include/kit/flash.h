// Flash messages: what one request did, shown once by the next page.
//
//     kit::setFlash(request, "Saved.");
//     response.seeOther("/servlet?p=notes");
//
// and on the page that is shown then:
//
//     variables.set("flash", kit::takeFlash(request));
//
// The message is kept in the session: unlike one in the address ("&saved=1"), it is not shown again
// when the page is reloaded, and no link on another site can make the page show it.
#ifndef KIT_FLASH_H
#define KIT_FLASH_H

#include "kit/request.h"
#include "kit/session_data.h"
#include "kit/text.h"

#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace kit {

namespace internal {

// The message of one session.
class Flash {
public:
    void set(std::string text) {
        std::lock_guard<std::mutex> guard(m_lock);
        m_text = std::move(text);
    }
    std::string take() {
        std::lock_guard<std::mutex> guard(m_lock);
        return std::exchange(m_text, std::string());
    }

private:
    std::mutex m_lock;
    std::string m_text; // guarded by m_lock
};

inline SessionData<Flash>& flashes() {
    static SessionData<Flash> all("kitFlash");
    return all;
}

} // namespace internal

// A longer message is cut.
constexpr std::size_t kMaxFlashBytes = 256;

// Keeps `message`, plain text or a code that the template turns into a text, for the next page of
// this session that takes it; replaces one that no page has taken. Creates a session if there is
// none: call it before the first byte of the body, and only once the request is known to be from a
// form of this device (see forms.h), so that others cannot fill the device with sessions.
//   Threads  any; the message is shown by one of several requests at once.
inline void setFlash(Request& request, std::string_view message) {
    internal::flashes()
        .findOrCreate(request.createSession())
        ->set(std::string(shortened(message, kMaxFlashBytes)));
}

// Returns the message that an earlier request of this session kept, and forgets it; empty if there
// is none. Call it on pages that show it, and not for requests of a script. A HEAD request gets
// none, since it shows nothing.
inline std::string takeFlash(Request& request) {
    HttpSession* session = request.session();
    const auto flash = session ? internal::flashes().find(*session) : nullptr;
    return flash && request.method() != "HEAD" ? flash->take() : std::string();
}

} // namespace kit

#endif
