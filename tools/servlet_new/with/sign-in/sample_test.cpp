// Tests both pages in the container.

#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

namespace {

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

// The two pages in the container, and a browser.
class SamplePages : public testing::Test {
protected:
    Response open(const std::string& page) {
        return browser.send(withTemplates(get("/servlet?p=" + page)));
    }
    Response signIn(const std::string& user, const std::string& password) {
        open("sign-in"); // sets the cookie with the token
        return submit("in", *browser.cookie("formToken"), {{"user", user}, {"password", password}});
    }
    Response submit(const std::string& action, const std::string& token, Fields fields = {}) {
        fields.emplace_back("token", token);
        return browser.send(withTemplates(post("/servlet?p=sign-in&q=" + action).form(fields)));
    }
    static Request withTemplates(const Request& request) {
        return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
    }

    Container container{SERVLET_XML};
    Browser browser{container};
};

} // namespace

TEST_F(SamplePages, LetInWhoeverHasThePassword) {
    const Response first = open("sample");
    EXPECT_EQ(first.status, 303);
    EXPECT_EQ(first.header("Location"), "/servlet?p=sign-in");
    EXPECT_EQ(signIn("admin", "garden gate").header("Location"), "/servlet?p=sample");
    EXPECT_TRUE(shows(open("sample"), "Hello, admin!"));
    EXPECT_EQ(open("sign-in").header("Location"), "/servlet?p=sample");
}

TEST_F(SamplePages, RefuseEverybodyElse) {
    const Response wrong = signIn("<admin>", "garden");
    EXPECT_EQ(wrong.status, 403);
    EXPECT_TRUE(shows(wrong, "Wrong name or password."));
    EXPECT_FALSE(shows(wrong, "garden"));
    EXPECT_TRUE(shows(wrong, "value=\"&lt;admin&gt;\""));
    EXPECT_EQ(signIn("bob", "garden gate").status, 403);
    EXPECT_EQ(signIn("admin", "").status, 403);
    EXPECT_EQ(signIn("admin", "garden gate").status, 429) << "too many attempts";
    EXPECT_EQ(open("sample").status, 303);
}

TEST_F(SamplePages, AcceptNoFormOfOtherSites) {
    open("sign-in");
    const Fields right = {{"user", "admin"}, {"password", "garden gate"}};
    for (int i = 0; i < 5; ++i) {
        const Response forged = submit("in", std::string(32, '0'), right);
        EXPECT_EQ(forged.status, 403);
        EXPECT_TRUE(shows(forged, "This form is out of date."));
    }
    EXPECT_EQ(signIn("admin", "garden gate").status, 303) << "those were no attempts";
}

TEST_F(SamplePages, SignOutWithTheTokenOfTheSignIn) {
    signIn("admin", "garden gate");
    EXPECT_EQ(submit("out", *browser.cookie("formToken")).status, 403);
    const std::string page = open("sample").body;
    const std::string before = "name=\"token\" value=\"";
    const std::string token = page.substr(page.find(before) + before.size(), 32);
    EXPECT_EQ(submit("out", token).header("Location"), "/servlet?p=sign-in");
    EXPECT_EQ(open("sample").status, 303);
}
