// A page that greets by name, as often as it is asked to, and a listener that counts requests.

#include <kit/plugin.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kLongestName = 20;
constexpr int kMostTimes = 5;

// The page and the listener share it; every request thread uses both.
std::atomic<long> requestCount{0};

// What is kept of one session, whose requests may be served at the same time.
struct Visitor {
    std::atomic<long> greetings{0};
};

class HelloPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        kit::Variables variables;
        variables.set("longestName", kLongestName)
            .set("mostTimes", kMostTimes)
            .set("requests", requestCount.load());
        if (request.isPost()) {
            greet(request, response, variables);
        }
        if (HttpSession* session = request.session()) {
            variables.set("greetings", m_visitors.of(*session)->greetings.load());
        }
        response.show("hello.html", std::move(variables));
    }

    void greet(kit::Request& request, kit::Response& response, kit::Variables& variables) {
        variables.set("name", request.parameter("name").value_or(""))
            .set("times", request.parameter("times").value_or(""));
        const auto name = request.text("name", 1, kLongestName);
        const auto times = request.number("times", 1, kMostTimes);
        if (!name) {
            variables.set("nameProblem", kit::describe(name.problem()));
        }
        if (!times) {
            variables.set("timesProblem", kit::describe(times.problem()));
        }
        if (!name || !times) {
            response.status(422);
            return;
        }
        m_visitors.of(*request.raw().getSession(true))->greetings += *times;
        const std::vector<int> echoes(static_cast<std::size_t>(*times - 1));
        variables.set("greeted", *name).rows("echoes", echoes, [](int) {
            return kit::Variables();
        });
    }

    kit::SessionData<Visitor> m_visitors{"visitor"};
};

// Counts the requests, and ends those that no page is made for.
class RequestListener final : public kit::Listener {
    bool admit(kit::Request& request, kit::Response& response) override {
        ++requestCount;
        const char* method = request.raw().getMethod();
        for (std::string_view known : {"GET", "HEAD", "POST"}) {
            if (method && method == known) {
                return true;
            }
        }
        response.header("Allow", "GET, HEAD, POST");
        response.status(405).text("This page is read and sent forms.\n");
        return false;
    }
};

} // namespace

KIT_SERVLET(createHelloPage, HelloPage)
KIT_LISTENER(createRequestListener, RequestListener)
