// A page that greets by name as often as requested, a listener that counts requests, and a 404
// page.

#include <kit/forms.h>
#include <kit/not_found.h>
#include <kit/plugin.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kMaxNameLength = 20;
constexpr int kMaxTimes = 5;

// Shared by the page and the listener; atomic, because request threads use both at the same time.
std::atomic<long> requestCount{0};

// The data of one session. Atomic, because requests of one session may run at the same time.
struct Visitor {
    std::atomic<long> greetings{0};
};

class HelloPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        kit::Variables variables;
        variables.set("maxNameLength", kMaxNameLength)
            .set("maxTimes", kMaxTimes)
            .set("requests", requestCount.load());
        if (request.isPost()) {
            greet(request, response, variables);
        }
        if (HttpSession* session = request.session()) {
            variables.set("greetings", m_visitors.findOrCreate(*session)->greetings.load());
        }
        response.show("hello.html", std::move(variables));
    }

    void greet(kit::Request& request, kit::Response& response, kit::Variables& variables) {
        kit::Form form(request);
        const auto name = form.text("name", 1, kMaxNameLength);
        const auto times = form.number("times", 1, kMaxTimes);
        form.fill(variables);
        if (!form.isValid()) {
            response.status(422);
            return;
        }
        m_visitors.findOrCreate(request.createSession())->greetings += *times;
        const std::vector<int> echoes(static_cast<std::size_t>(*times - 1));
        variables.set("greeted", *name).rows("echoes", echoes, [](int) {
            return kit::Variables();
        });
    }

    kit::SessionData<Visitor> m_visitors{"visitor"};
};

// Counts the requests, and refuses methods that no page supports.
class RequestListener final : public kit::Listener {
    bool admit(kit::Request& request, kit::Response& response) override {
        ++requestCount;
        const std::string_view method = request.method();
        for (std::string_view known : {"GET", "HEAD", "POST"}) {
            if (method == known) {
                return true;
            }
        }
        response.header("Allow", "GET, HEAD, POST");
        response.status(405).text("Only GET, HEAD and POST are supported.\n");
        return false;
    }
};

} // namespace

KIT_SERVLET(createHelloPage, HelloPage)
KIT_LISTENER(createRequestListener, RequestListener)
KIT_LISTENER(createNotFound, kit::NotFound("not-found.html"))
