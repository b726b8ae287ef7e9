// The test kit's ServletRunner and ListenerRunner.
#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>
#include <kit/testing/test_clock.h>

#include "pages.h"

#include <HttpSession.h>
#include <gtest/gtest.h>
#include <tmpl.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace kit::testing;

constexpr char* kEnd = nullptr;

// A listener that passes on requests with a cookie, and adds a header with the client's address.
class Guard final : public HttpListener {
public:
    void init() override { ++initialised; }
    bool onRequest(HttpRequest* request, HttpResponse* response) override {
        response->setHeader("X-Visitor", request->getRemoteAddr());
        if (request->getCookie() != nullptr)
            return true;
        response->sendRedirect("/servlet?p=login");
        return false;
    }

    int initialised = 0;
};

// Like every created servlet, it is freed without its destructor.
std::vector<std::string> calls;
class CreatedPage final : public HttpServlet {
public:
    void init() override { calls.emplace_back("init"); }
    void service(HttpRequest*, HttpResponse* response) override { response->print("created"); }
    void destroy() override { calls.emplace_back("destroy"); }
};
HttpServlet* createPage() {
    calls.emplace_back("create");
    return new CreatedPage;
}
HttpServlet* createNothing() {
    return nullptr;
}

void startSession(HttpRequest* request, HttpResponse* response) {
    const bool known = request->getSession(false) != nullptr;
    request->getSession(true);
    response->print(known ? "known" : "new");
}

static_assert(!std::is_copy_constructible_v<ServletRunner>);

TEST(ServletRunner, ServesEveryRequestByItsServlet) {
    Page page([](HttpRequest* request, HttpResponse* response) {
        response->setStatus(201);
        response->print("%s %s", request->getMethod(), parameter(request, "name").c_str());
    });
    ServletRunner runner(page);
    const Response response = runner.serve(get("/servlet?p=any&name=you"));
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.body, "GET you");
    EXPECT_EQ(runner.serve(post("/").form({{"name", "me"}})).body, "POST me");
}

TEST(ServletRunner, CallsInitFirstAndDestroyLast) {
    Page page([](HttpRequest*, HttpResponse*) {});
    {
        ServletRunner runner(page);
        EXPECT_EQ(page.initialised, 1);
        runner.serve(get("/"));
        EXPECT_EQ(page.destroyed, 0);
    }
    EXPECT_EQ(page.initialised, 1);
    EXPECT_EQ(page.destroyed, 1);
}

TEST(ServletRunner, CreatesAServletWithTheCreationFunction) {
    calls.clear();
    EXPECT_EQ(ServletRunner(createPage).serve(get("/")).body, "created");
    EXPECT_EQ(calls, (std::vector<std::string>{"create", "init", "destroy"}));
    EXPECT_THROW(ServletRunner{createNothing}, std::runtime_error);
}

TEST(ServletRunner, RendersTheTemplateAfterTheServletReturns) {
    Page page([](HttpRequest* request, HttpResponse* response) {
        response->setTemplate(
            CARD, TMPL_add_var(nullptr, "title", parameter(request, "title").c_str(), kEnd));
    });
    ServletRunner runner(page);
    EXPECT_EQ(runner.serve(get("/servlet?title=%3Cb%3E").header("Accept-Language", "fr,de")).body,
              "<h1>&lt;b&gt;</h1><p>fr</p>\n");
}

TEST(ServletRunner, ReturnsAnEmptyPageForAServletThatWritesNothing) {
    Page page([](HttpRequest*, HttpResponse*) {});
    const Response response = ServletRunner(page).serve(get("/"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(response.headers.empty());
    EXPECT_TRUE(response.passed);
}

TEST(ServletRunner, KeepsSessions) {
    Page page(startSession);
    ServletRunner runner(page);
    const Response first = runner.serve(get("/"));
    EXPECT_EQ(first.body, "new");
    const Request again = get("/").cookie("JSESSIONID", first.cookie("JSESSIONID")->value);
    const Response second = runner.serve(again);
    EXPECT_EQ(second.body, "known");
    EXPECT_FALSE(second.cookie("JSESSIONID"));
    EXPECT_EQ(runner.serve(again.from("192.0.2.8")).body, "new");
    EXPECT_EQ(runner.sessionCount(), 2);
}

TEST(ServletRunner, EndsIdleSessionsOnlyInASweep) {
    Page page(startSession);
    ServletRunner runner(page);
    const Request again =
        get("/").cookie("JSESSIONID", runner.serve(get("/")).cookie("JSESSIONID")->value);
    test_clock::advanceSeconds(100);
    EXPECT_EQ(runner.serve(again).body, "known");
    test_clock::advanceSeconds(179);
    runner.sweep();
    EXPECT_EQ(runner.sessionCount(), 1);
    test_clock::advanceSeconds(1);
    EXPECT_EQ(runner.sessionCount(), 1);
    runner.sweep();
    EXPECT_EQ(runner.sessionCount(), 0);
}

TEST(ServletRunner, HasItsOwnSessions) {
    Page page(startSession);
    ServletRunner one(page);
    ServletRunner other(page);
    one.serve(get("/"));
    EXPECT_EQ(one.sessionCount(), 1);
    EXPECT_EQ(other.sessionCount(), 0);
}

TEST(ServletRunner, ServesOnSeveralThreadsAtOnce) {
    Page page(startSession);
    ServletRunner runner(page);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&runner] {
            for (int n = 0; n < 50; ++n)
                EXPECT_EQ(runner.serve(get("/")).body, "new");
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(runner.sessionCount(), 200);
}

TEST(ServletRunner, RethrowsExceptionsAndServesTheNextRequest) {
    Page page([](HttpRequest* request, HttpResponse* response) {
        if (request->getParameter("throw") != nullptr)
            throw std::logic_error("thrown");
        response->print("served");
    });
    ServletRunner runner(page);
    EXPECT_THROW(runner.serve(get("/?throw=1")), std::logic_error);
    EXPECT_EQ(runner.serve(get("/")).body, "served");
}

TEST(ServletRunner, ThrowsForAResponseThatAFrontServerRejects) {
    Page page([](HttpRequest*, HttpResponse* response) {
        response->setStatus(200);
        response->setStatus(404);
    });
    EXPECT_THROW(ServletRunner(page).serve(get("/")), std::runtime_error);
}

TEST(ListenerRunner, ReportsWhetherTheListenerPassedTheRequestOn) {
    Guard guard;
    ListenerRunner runner(guard);
    EXPECT_EQ(guard.initialised, 1);
    const Response passed = runner.serve(get("/").cookie("a", "b"));
    EXPECT_TRUE(passed.passed);
    EXPECT_EQ(passed.status, 200);
    EXPECT_EQ(passed.header("X-Visitor"), "192.0.2.7");
    const Response refused = runner.serve(get("/").from("192.0.2.9"));
    EXPECT_FALSE(refused.passed);
    EXPECT_EQ(refused.status, 302);
    EXPECT_EQ(refused.header("Location"), "/servlet?p=login");
    EXPECT_EQ(refused.header("X-Visitor"), "192.0.2.9");
    EXPECT_EQ(guard.initialised, 1);
}

} // namespace
