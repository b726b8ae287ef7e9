// The page "log".
#include "phone_test.h"

namespace {

class LogPage : public SignedInFixture {
protected:
    bool isShown(const std::string& text, const std::string& query = "log") {
        return me.page(query).text().find(text) != std::string::npos;
    }
};

} // namespace

TEST_F(LogPage, ShowsWhoSignedIn) {
    EXPECT_EQ(me.page("log").title(), "Log");
    EXPECT_TRUE(isShown("Information Signed in: admin from 192.0.2.7")) << me.page("log").text();
    EXPECT_EQ(Visitor(*container).page("log").location(), std::string(kSignInForm) + "&jumpto=log");
}

TEST_F(LogPage, SelectsTheLevel) {
    Visitor(*container, "192.0.2.66").signIn("wrong password");
    for (const char* query : {"log", "log&level=info", "log&level=warning", "log&level=other"}) {
        EXPECT_TRUE(isShown("Warning Wrong user name or password from 192.0.2.66", query)) << query;
    }
    EXPECT_FALSE(isShown("Signed in:", "log&level=warning"));
    EXPECT_FALSE(isShown("Wrong user name", "log&level=error"));
    breakTheDisk();
    me.submit("network", {{"mode", "dhcp"}, {"hostname", "hall"}});
    repairTheDisk();
    EXPECT_TRUE(isShown("Error Cannot save", "log&level=error"));
}

TEST_F(LogPage, SendsATextFile) {
    const Answer answer = me.page("log&q=download&level=info");
    EXPECT_EQ(answer.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(answer.header("Content-Disposition"), "attachment; filename=phone.log");
    const std::string end = " info: Signed in: admin from 192.0.2.7\n";
    ASSERT_GT(answer.body.size(), end.size());
    EXPECT_NE(answer.body.find(end), std::string::npos) << answer.body;
    EXPECT_EQ(me.page("log&q=download&level=error").body, "");
}

// The attack: a password in the wrong field, or in a refused request, is there for all to read.
TEST_F(LogPage, ShowsNoSecrets) {
    const std::string secret = "swordfish secret";
    Visitor stranger(*container, "192.0.2.66");
    stranger.signIn(secret, "admin");
    stranger.signIn(secret, secret);
    me.submit("security&q=password",
              {{"oldPassword", secret}, {"newPassword", secret}, {"repeat", secret}});
    me.submit("security&q=password",
              {{"oldPassword", kPassword}, {"newPassword", secret}, {"repeat", secret}});
    const Answer page = me.page("log");
    EXPECT_TRUE(isShown("The password of admin was changed"));
    EXPECT_EQ(page.body.find("swordfish"), std::string::npos);
    EXPECT_EQ(page.body.find(kPassword), std::string::npos);
    EXPECT_EQ(page.body.find("$y$"), std::string::npos);
    EXPECT_EQ(page.body.find(*me.cookie("signIn")), std::string::npos);
}

// The attack: whoever chooses an address writes markup or further lines.
TEST_F(LogPage, EscapesTheTextsOfStrangers) {
    Visitor(*container, "<b>1</b>\n2026 error: fake").signIn("wrong password");
    const Answer page = me.page("log");
    EXPECT_EQ(page.body.find("<b>"), std::string::npos);
    EXPECT_TRUE(isShown("from <b>1</b>\\x0a2026 error: fake")) << page.text();
    EXPECT_EQ(me.page("log&q=download").body.find("\n2026 error"), std::string::npos);
}
