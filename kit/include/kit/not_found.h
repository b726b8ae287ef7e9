// A 404 page: the answer to requests for pages that do not exist.
#ifndef KIT_NOT_FOUND_H
#define KIT_NOT_FOUND_H

#include "kit/container_rules.h"
#include "kit/plugin.h"

#include <string>
#include <utility>

// Weak, since older containers lack it, and so do hosts that contain the container but do not
// export it. NOLINTNEXTLINE(readability-redundant-declaration)
extern bool isUnknownServlet(const char* id) __attribute__((weak));

namespace kit {

// Returns whether the request is for a page that servlet.xml does not have. False for events and
// for the status word "notice", which no page answers; and in containers older than this function,
// which do not say what they have.
inline bool isForUnknownPage(Request& request) {
    return isUnknownServlet && !eventOf(request) && request.page() != "notice" &&
           isUnknownServlet(request.page().data());
}

// Answers requests for unknown pages with status 404 and a template. Without such a listener the
// container answers them with status 200 and the text of its 404 page. Name it last in servlet.xml,
// so that the other listeners, such as the one for signing in, are asked before.
//     KIT_LISTENER(createNotFound, kit::NotFound("not-found.html"))
class NotFound final : public Listener {
public:
    // `name` is that of a template file, as for Response::show(); its variable "page" is the id
    // that was asked for.
    explicit NotFound(std::string name) : m_name(std::move(name)) {}

    bool admit(Request& request, Response& response) override {
        if (!isForUnknownPage(request)) {
            return true;
        }
        response.status(404).show(m_name, Variables().set("page", request.page()));
        return false;
    }

private:
    const std::string m_name;
};

} // namespace kit

#endif
