// Tests the page alone, and in the container.

#include <HttpServlet.h>
#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

extern "C" HttpServlet* createSamplePage();

namespace {

class SamplePage : public testing::Test {
protected:
    Response send(const Request& request) {
        return browser.send(request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT));
    }
    std::string shown() { return send(get("/servlet?p=sample")).body; }
    Response submit(const std::string& action, Fields fields) {
        shown(); // sets the cookie with the token
        fields.emplace_back("token", browser.cookie("formToken").value_or(""));
        return send(post("/servlet?p=sample&q=" + action).form(fields));
    }
    static bool has(const std::string& page, const std::string& text) {
        return page.find(text) != std::string::npos;
    }

    ServletRunner page{createSamplePage};
    Browser browser{page};
};

} // namespace

TEST_F(SamplePage, AddsAnItemAndSaysSoOnce) {
    const Response added = submit("add", {{"text", "Water the <plants>"}});
    EXPECT_EQ(added.status, 303);
    EXPECT_EQ(added.header("Location"), "/servlet?p=sample");
    const std::string list = shown();
    EXPECT_TRUE(has(list, "<li>Water the &lt;plants&gt; "));
    EXPECT_TRUE(has(list, "<p role=\"status\">Added.</p>"));
    EXPECT_FALSE(has(shown(), "Added."));
}

TEST_F(SamplePage, ShowsWhatWasEnteredWithTheError) {
    const std::string tooLong(61, 'x');
    const Response again = submit("add", {{"text", tooLong}});
    EXPECT_EQ(again.status, 422);
    EXPECT_TRUE(has(again.body, "value=\"" + tooLong + "\""));
    EXPECT_TRUE(has(again.body, "The text is too long."));
    EXPECT_TRUE(has(submit("add", {{"text", ""}}).body, "The text is missing."));
}

TEST_F(SamplePage, RemovesAnItem) {
    submit("add", {{"text", "one"}});
    submit("add", {{"text", "two"}});
    EXPECT_EQ(submit("remove", {{"id", "1"}}).status, 303);
    const std::string list = shown();
    EXPECT_TRUE(has(list, "Removed."));
    EXPECT_FALSE(has(list, "<li>one "));
    EXPECT_TRUE(has(list, "<li>two "));
}

TEST_F(SamplePage, HasRoomForTwentyItems) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(submit("add", {{"text", "item"}}).status, 303);
    }
    EXPECT_TRUE(has(submit("add", {{"text", "item"}}).body, "The text is one too many."));
}

TEST_F(SamplePage, ChangesNothingForOtherSites) {
    shown();
    const Response forged = send(post("/servlet?p=sample&q=add").form({{"text", "Buy this"}}));
    EXPECT_EQ(forged.status, 403);
    EXPECT_FALSE(has(shown(), "Buy this"));
    EXPECT_EQ(page.sessionCount(), 0);
}

TEST(SampleInContainer, ShowsItsForm) {
    Container container(SERVLET_XML);
    const Request request = get("/servlet?p=sample").variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
    EXPECT_NE(container.serve(request).body.find("<h1>To do</h1>"), std::string::npos);
}
