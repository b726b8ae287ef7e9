// A plug-in that uses a symbol of the container, which the host that loads the plug-in must export.
#include <kit/plugin.h>

#include <http_session.h>

#include <sstream>

class MutexPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override {
        std::ostringstream text;
        text << &session_mutex << '\n';
        response.text(text.str());
    }
};

KIT_SERVLET(createMutexPage, MutexPage)
