// A plug-in library whose page counts the visits of each session, for without_memory_test.cpp.

#include "kit/plugin.h"
#include "kit/session_data.h"

#include <string>

namespace {

struct Visits {
    int count = 0;
};
kit::SessionData<Visits> visits("the visits of a session, under a long name");

class Everybody final : public kit::Listener {
    bool admit(kit::Request&, kit::Response& response) override {
        return response.header("X-Listener-With-A-Long-Name",
                               "everybody is let in, and is told so");
    }
};

// Greets, and says how often somebody has come. With q=look it counts nobody and tells how many are
// known.
class VisitsPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.parameter("q") == "look") {
            response.text(std::to_string(visits.size()));
            return;
        }
        // What is shown when nothing else is.
        response.show("another.html", kit::Variables().set("name", "nobody with a short name"));
        HttpSession* session = request.raw().getSession(true);
        const int count = ++visits.of(*session)->count;
        const std::string name(request.parameter("name").value_or("you"));
        response.show("page.html",
                      kit::Variables().set("name", name + " for time " + std::to_string(count)));
    }
};

} // namespace

KIT_LISTENER(createEverybody, Everybody)
KIT_SERVLET(createVisitsPage, VisitsPage)
