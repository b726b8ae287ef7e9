// Tests the page alone, the listener alone, and both in the container.

#include <HttpListener.h>
#include <HttpServlet.h>
#include <kit/testing/browser.h>
#include <kit/testing/runner.h>
#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

extern "C" HttpServlet* createHelloPage();
extern "C" HttpListener* createRequestListener();

namespace {

Request withTemplates(const Request& request) {
    return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
}

Request opened() {
    return withTemplates(get("/servlet?p=hello"));
}

Request sent(const std::string& name, const std::string& times) {
    return withTemplates(post("/servlet?p=hello").form({{"name", name}, {"times", times}}));
}

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

class HelloPage : public testing::Test {
protected:
    ServletRunner page{createHelloPage};
    Browser browser{page};
};

} // namespace

TEST_F(HelloPage, ShowsItsForm) {
    const Response response = browser.send(opened());
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_TRUE(shows(response, "<h1>Hello, stranger!</h1>"));
    EXPECT_TRUE(shows(response, "maxlength=\"20\""));
    EXPECT_TRUE(shows(response, "How many times, 1 to 5"));
    EXPECT_FALSE(response.cookie("JSESSIONID")) << "opening the form creates no session";
}

TEST_F(HelloPage, GreetsByNameAsOftenAsRequested) {
    const Response response = browser.send(sent("Ann & Bob", "2"));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "<h1>Hello, Ann &amp; Bob!</h1>"));
    const auto echo = response.body.find("Hello once more.");
    ASSERT_NE(echo, std::string::npos);
    EXPECT_EQ(response.body.find("Hello once more.", echo + 1), std::string::npos);
    EXPECT_FALSE(shows(response, "aria-invalid"));
}

TEST_F(HelloPage, ShowsTheProblemOfAFieldAndKeepsTheInput) {
    const struct {
        const char* name;
        const char* times;
        const char* message;
    } cases[] = {
        {"", "1", "The name is missing."},
        {"a name of 21 letters.", "1", "The name is too long."},
        {"a\tb", "1", "The name contains characters that are not allowed."},
        {"Ann", "", "The number is missing."},
        {"Ann", "often", "The number is not a whole number."},
        {"Ann", "0", "The number is too small."},
        {"Ann", "6", "The number is too large."},
    };
    for (const auto& wrong : cases) {
        const Response response = browser.send(sent(wrong.name, wrong.times));
        EXPECT_EQ(response.status, 422) << wrong.message;
        EXPECT_TRUE(shows(response, wrong.message)) << response.body;
        EXPECT_TRUE(shows(response, std::string("value=\"") + wrong.name + '"'));
        EXPECT_TRUE(shows(response, "<h1>Hello, stranger!</h1>")) << wrong.message;
    }
    EXPECT_TRUE(shows(browser.send(opened()), "You have been greeted 0 times."));
}

TEST_F(HelloPage, CountsGreetingsForEachSession) {
    Browser other(page);
    browser.send(sent("Ann", "2"));
    EXPECT_TRUE(shows(browser.send(sent("Ann", "3")), "You have been greeted 5 times."));
    EXPECT_TRUE(shows(other.send(sent("Bob", "1")), "You have been greeted 1 times."));
    EXPECT_TRUE(shows(browser.send(opened()), "You have been greeted 5 times."));
}

TEST_F(HelloPage, ForgetsItsCountWhenTheSessionExpires) {
    browser.send(sent("Ann", "2"));
    test_clock::advanceSeconds(181);
    page.sweep();
    EXPECT_EQ(page.sessionCount(), 0);
    EXPECT_TRUE(shows(browser.send(opened()), "You have been greeted 0 times."));
}

TEST(RequestListener, PassesOnTheMethodsThatBrowsersSend) {
    ListenerRunner listener(*createRequestListener());
    for (const char* method : {"GET", "HEAD", "POST"}) {
        EXPECT_TRUE(listener.serve(Request(method, "/servlet?p=hello")).passed) << method;
    }
}

TEST(RequestListener, RefusesOtherMethods) {
    ListenerRunner listener(*createRequestListener());
    for (const char* method : {"PUT", "DELETE", "get", "GETS"}) {
        const Response response = listener.serve(Request(method, "/servlet?p=hello"));
        EXPECT_FALSE(response.passed) << method;
        EXPECT_EQ(response.status, 405) << method;
        EXPECT_EQ(response.header("Allow"), "GET, HEAD, POST");
        EXPECT_EQ(response.body, "Only GET, HEAD and POST are supported.\n");
    }
    const Request nameless = get("/servlet?p=hello").without("REQUEST_METHOD");
    EXPECT_FALSE(listener.serve(nameless).passed);
}

TEST(HelloInContainer, ServesThePageAndTheListener) {
    Container container(SERVLET_XML);
    Browser browser(container);
    EXPECT_TRUE(shows(browser.send(opened()), "This is request number 1."));
    EXPECT_EQ(browser.send(withTemplates(Request("PUT", "/servlet?p=hello"))).status, 405);
    EXPECT_TRUE(shows(browser.send(sent("Ann", "1")), "<h1>Hello, Ann!</h1>"));
    EXPECT_TRUE(shows(browser.send(opened()), "This is request number 4."));
}

TEST(HelloInContainer, AnswersRequestsForOtherPagesWithStatus404) {
    Container container(SERVLET_XML);
    const Response response = container.serve(withTemplates(get("/servlet?p=goodbye")));
    EXPECT_EQ(response.status, 404);
    EXPECT_TRUE(shows(response, "<h1>There is no page “goodbye”.</h1>"));
}

TEST(HelloInContainer, IsUnloadedWithTheContainer) {
    for (int start = 1; start <= 2; ++start) {
        Container container(SERVLET_XML);
        EXPECT_TRUE(shows(container.serve(opened()), "This is request number 1."))
            << "the count of the earlier container was kept";
    }
}
