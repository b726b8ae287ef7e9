// A container with a plug-in that uses the kit, while memory runs out: each allocation of a request
// fails in turn, beginning with the first request.
#include "failing_allocations.h"
#include "kit/json_body.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "web_debug.h"

#include <kit/testing/recorded_log.h>
#include <kit/testing/request.h>
#include <kit/testing/response.h>
#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace kit::testing;

constexpr long kLongerThanASession = 1000; // seconds; a session expires after 180
constexpr std::size_t kMaxResponseBytes = 64 * 1024;
const std::string kName = "a name that needs an allocation";
const std::string kGreeting = "Hello, " + kName + " for time 1!\n";

// A FastCGI request with a buffer for the whole response, so that writing it allocates nothing.
class Exchange {
public:
    explicit Exchange(const Request& request)
        : m_fastCgi(request.inMemory()), m_answer(kMaxResponseBytes) {
        FCGX_Stream* out = m_fastCgi.get()->out;
        out->wrNext = m_answer.data();
        out->stop = m_answer.data() + m_answer.size();
    }

    int serveBy(ServletController& service) {
        m_status = service.doService(m_fastCgi.get());
        return m_status;
    }
    // Returns the response. The controller writes no error pages, so for those it has only the
    // status.
    Response response() {
        const std::string text(m_answer.data(), m_fastCgi.get()->out->wrNext);
        return m_status == 200 ? Response(text)
                               : Response("Status: " + std::to_string(m_status) + "\r\n\r\n");
    }

private:
    MemoryRequest m_fastCgi;
    std::vector<unsigned char> m_answer;
    int m_status = 0;
};

class Service : public testing::Test {
protected:
    Service() {
        WebDebug::getInstance()->info("Makes the recorded log reserve its memory.");
        recorded_log::clear();
    }

    void start() {
        m_service = std::make_unique<ServletController>(KIT_VISITS_CONFIG);
        m_service->init();
    }
    void stop() {
        m_service->destroy();
        m_service.reset();
        recorded_log::clear();
    }

    void ask(const Request& request) { m_exchange = std::make_unique<Exchange>(at(request)); }
    Response answerTo(const Request& request) {
        Exchange exchange(at(request));
        exchange.serveBy(*m_service);
        return exchange.response();
    }

    // All sessions expire, and the page's data for them is freed.
    void expectThatSessionsEnd() {
        test_clock::advanceSeconds(kLongerThanASession);
        m_service->getSessionFactory()->onTimer();
        EXPECT_EQ(m_service->getSessionFactory()->sessionNum(), 0);
        EXPECT_EQ(answerTo(get("/servlet?p=visits&q=look")).body, "0");
    }

    std::unique_ptr<ServletController> m_service;
    std::unique_ptr<Exchange> m_exchange;

private:
    static Request at(const Request& request) {
        return request.variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
    }
};

const Request kVisit = post("/servlet?p=visits").form({{"name", kName}});

} // namespace

TEST_F(Service, AnswersOrRefusesARequestWithoutMemoryAndAnswersTheNextOne) {
    std::array<int, 600> answers{}; // by status
    failEachAllocation(
        [this] {
            start();
            ask(kVisit);
        },
        [this] { m_exchange->serveBy(*m_service); },
        [&](bool refused) {
            if (!refused) {
                const Response answer = m_exchange->response();
                ++answers.at(static_cast<std::size_t>(answer.status));
                // Without memory, a field is absent, a variable is not set or no template is shown.
                const std::set<std::string> bodies = {
                    kGreeting, "Hello, you for time 1!\n", "Hello, !\n", "",
                    "The page failed; the device's log says why.\n"};
                EXPECT_EQ(bodies.count(answer.body), 1u) << answer.body;
            }
            m_exchange.reset();
            EXPECT_EQ(answerTo(kVisit).body, kGreeting);
            expectThatSessionsEnd();
            stop();
        });
    for (const std::size_t status : {200, 404, 500})
        EXPECT_GT(answers[status], 0) << status;
}

// The failing request comes from a client with a session.
TEST_F(Service, KeepsASessionThroughARequestWithoutMemory) {
    start();
    answerTo(kVisit); // creates the page
    std::string id;
    failEachAllocation(
        [&] {
            expectThatSessionsEnd();
            const Response answer = answerTo(kVisit);
            id = answer.cookie("JSESSIONID")->value;
            recorded_log::clear();
            ask(kVisit.cookie("JSESSIONID", id));
        },
        [this] { m_exchange->serveBy(*m_service); },
        [&](bool refused) {
            m_exchange.reset();
            const Response next = answerTo(kVisit.cookie("JSESSIONID", id));
            EXPECT_FALSE(next.cookie("JSESSIONID")) << "another session";
            const std::string greeting = "Hello, " + kName + " for time ";
            EXPECT_TRUE(next.body == greeting + "2!\n" || next.body == greeting + "3!\n")
                << next.body;
            EXPECT_TRUE(!refused || next.body == greeting + "2!\n");
            expectThatSessionsEnd();
            recorded_log::clear();
        });
    stop();
}

TEST(ParseJson, PassesOnThatThereIsNoMemory) {
    const std::string text =
        R"({"a name that needs memory": ["a text that needs memory, too", {}]})";
    std::size_t written = 0;
    failEachAllocation([&] { written = 0; },
                       [&] { written = (*kit::parseJson(text)).serialized().size(); },
                       [&](bool refused) { EXPECT_TRUE(refused || written == text.size() - 2); });
}
