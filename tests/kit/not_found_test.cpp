#include "served.h"

#include "kit/not_found.h"

#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

namespace {

Request asked(const std::string& query, const std::string& method = "GET") {
    return Request(method, "/servlet?" + query + "&word=please")
        .variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
}

class UnknownPage : public testing::Test {
protected:
    Container container{KIT_TEST_CONFIG};
    Browser browser{container};
};

} // namespace

TEST_F(UnknownPage, IsAnsweredWithStatus404AndATemplate) {
    const Response response = browser.send(asked("p=contacts"));
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "<p>There is no page \"contacts\".</p>\n");
    EXPECT_EQ(response.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(browser.send(asked("p=")).status, 404);
    EXPECT_EQ(browser.send(asked("p=contacts", "POST")).status, 404);
}

TEST_F(UnknownPage, IsNoneThatTheConfigurationHas) {
    EXPECT_EQ(browser.send(asked("p=greeting")).status, 200);
    EXPECT_EQ(browser.send(asked("p=failing")).status, 500);
}

TEST_F(UnknownPage, IsNoEventAndNotTheStatusWord) {
    EXPECT_EQ(browser.send(asked("key=OK")).status, 200);
    EXPECT_EQ(browser.send(asked("csta&p=unknown")).status, 200);
    EXPECT_EQ(browser.send(asked("p=notice")).body, "idle");
}

// The listeners before it decide first, such as the one for signing in.
TEST_F(UnknownPage, IsLeftToTheListenersBefore) {
    const Response response = browser.send(get("/servlet?p=contacts"));
    EXPECT_EQ(response.status, 403);
    EXPECT_EQ(response.body, "Say the word.\n");
}

// The container does not know yet whether such a page can be created.
TEST_F(UnknownPage, IsNoneThatCannotBeCreated) {
    const Response response = browser.send(asked("p=impossible"));
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.body.find("Status: 404"), std::string::npos) << "the container's own";
}

TEST(NotFoundListener, AdmitsEveryRequestOutsideAContainer) {
    ListenerRunner listener(*kit::newListener(std::make_unique<kit::NotFound>("not-found.html")));
    EXPECT_TRUE(listener.serve(asked("p=contacts")).passed);
}
