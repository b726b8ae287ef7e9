// The plug-in library of without_memory_test.cpp: its page counts the visits of each session.

#include "kit/flash.h"
#include "kit/forms.h"
#include "kit/plugin.h"
#include "kit/session_data.h"

#include <string>

namespace {

struct Visits {
    int count = 0;
};
kit::SessionData<Visits> visits("the visits of a session, under a long name");

class PassAll final : public kit::Listener {
    bool admit(kit::Request&, kit::Response& response) override {
        return response.header("X-Listener-With-A-Long-Name",
                               "a value that does not fit into the object itself");
    }
};

// Greets, and shows the number of this session's visits. With q=look it counts no visit and shows
// the number of sessions that have visits.
class VisitsPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.parameter("q") == "look") {
            response.text(std::to_string(visits.size()));
            return;
        }
        // Replaced below, unless memory runs out before.
        response.show("other.html",
                      kit::Variables().set("name", "a value for the template that is not shown"));
        HttpSession* session = request.raw().getSession(true);
        const int count = ++visits.findOrCreate(*session)->count;
        kit::takeFlash(request);
        kit::setFlash(request, "a message that does not fit into the object itself");
        kit::Form form(request);
        form.text("name", 0, 100);
        form.number("a field with a long name, which is absent", 1, 2);
        kit::Variables entered;
        form.fill(entered.set("token", kit::formToken(request, response)));
        const std::string name(request.parameter("name").value_or("you"));
        response.show("page.html",
                      kit::Variables().set("name", name + " for time " + std::to_string(count)));
    }
};

} // namespace

KIT_LISTENER(createPassAll, PassAll)
KIT_SERVLET(createVisitsPage, VisitsPage)
