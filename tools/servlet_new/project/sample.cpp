// A page that greets by name, and a listener that counts requests.

#include <kit/plugin.h>

#include <atomic>
#include <cstddef>
#include <utility>

namespace {

constexpr std::size_t kMaxNameLength = 40;

// Shared by the page and the listener; atomic, because request threads use both at the same time.
std::atomic<long> requestCount{0};

class SamplePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        kit::Variables variables;
        variables.set("maxNameLength", kMaxNameLength).set("requests", requestCount.load());
        if (request.isPost()) {
            greet(request, response, variables);
        }
        response.show("sample.html", std::move(variables));
    }

    // The form is sent by POST, because the container refuses URLs with some texts that a name may
    // contain.
    static void greet(kit::Request& request, kit::Response& response, kit::Variables& variables) {
        // Show the input again, valid or not; the template escapes it.
        variables.set("name", request.parameter("name").value_or(""));
        const auto name = request.text("name", 1, kMaxNameLength);
        if (name) {
            variables.set("greeted", *name);
        } else {
            variables.set("problem", kit::describe(name.problem()));
            response.status(422);
        }
    }
};

// Sees every request before any page does.
class SampleCounter final : public kit::Listener {
    bool admit(kit::Request&, kit::Response&) override {
        ++requestCount;
        return true; // false would end the request and send the response as it is
    }
};

} // namespace

// The names that servlet.xml uses.
KIT_SERVLET(createSamplePage, SamplePage)
KIT_LISTENER(createSampleCounter, SampleCounter)
