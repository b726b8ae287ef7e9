#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

namespace {

// The two pages in the container, and a browser.
class Members : public testing::Test {
protected:
    Response signIn(const std::string& user, const std::string& password) {
        signInPage("");
        return submit("in", *browser.cookie("formToken"), {{"user", user}, {"password", password}});
    }
    Response signInPage(const std::string& more) {
        return browser.send(withTemplates(get("/servlet?p=sign-in" + more)));
    }
    Response submit(const std::string& action, const std::string& token, Fields fields = {}) {
        fields.emplace_back("token", token);
        return browser.send(withTemplates(post("/servlet?p=sign-in&q=" + action).form(fields)));
    }
    static Request withTemplates(const Request& request) {
        return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
    }
    static bool has(const Response& page, const std::string& text) {
        return page.body.find(text) != std::string::npos;
    }

    Container container{SERVLET_XML};
    Browser browser{container};
};

} // namespace

TEST_F(Members, SignInWithTheirPassword) {
    const Response first = browser.send(withTemplates(get("/servlet?p=members")));
    EXPECT_EQ(first.status, 303);
    EXPECT_EQ(first.header("Location"), "/servlet?p=sign-in");
    EXPECT_EQ(signIn("ann", "garden gate").header("Location"), "/servlet?p=members");
    EXPECT_TRUE(has(browser.send(withTemplates(get("/servlet?p=members"))), "Hello, ann!"));
    EXPECT_EQ(signInPage("").header("Location"), "/servlet?p=members");
}

TEST_F(Members, AreRefusedWithAnyOther) {
    const Response wrong = signIn("<ann>", "garden");
    EXPECT_EQ(wrong.status, 403);
    EXPECT_TRUE(has(wrong, "Wrong name or password."));
    EXPECT_TRUE(has(wrong, "value=\"&lt;ann&gt;\""));
    EXPECT_FALSE(has(wrong, "garden"));
    EXPECT_EQ(signIn("bob", "garden gate").status, 403);
    EXPECT_EQ(signIn("ann", "").status, 403);
    EXPECT_EQ(signIn("ann", "garden gate").status, 429) << "too many attempts";
    EXPECT_EQ(browser.send(withTemplates(get("/servlet?p=members"))).status, 303);
}

TEST_F(Members, AreNotSignedInByOtherSites) {
    signInPage("");
    for (int i = 0; i < 5; ++i) {
        const Response forged =
            submit("in", std::string(32, '0'), {{"user", "ann"}, {"password", "garden gate"}});
        EXPECT_EQ(forged.status, 403);
        EXPECT_TRUE(has(forged, "This form is out of date."));
    }
    EXPECT_EQ(signIn("ann", "garden gate").status, 303) << "those were no attempts";
}

TEST_F(Members, SignOutWithTheTokenOfTheirSignIn) {
    signIn("ann", "garden gate");
    EXPECT_EQ(submit("out", *browser.cookie("formToken")).status, 403);
    const std::string page = browser.send(withTemplates(get("/servlet?p=members"))).body;
    const std::string before = "name=\"token\" value=\"";
    const std::string token = page.substr(page.find(before) + before.size(), 32);
    EXPECT_EQ(submit("out", token).header("Location"), "/servlet?p=sign-in");
    EXPECT_EQ(browser.send(withTemplates(get("/servlet?p=members"))).status, 303);
}
