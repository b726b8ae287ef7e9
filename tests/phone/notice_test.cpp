// Auto-provisioning, and the status word, which must be correct whatever was requested last.
#include "json_reader.h"
#include "phone_test.h"

using StatusWordBeforeSignIn = PhoneFixture;
using kit::testing::test_clock::advanceSeconds;

namespace {

class StatusWordPage : public SignedInFixture {
protected:
    std::string busy() {
        return readJson(me.page("status-data&quiet=p=notice").body).at("busy.word");
    }
};

} // namespace

TEST_F(StatusWordBeforeSignIn, ReportsIdleToEveryone) {
    const Answer answer = Visitor(*container).page("notice");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "idle");
}

TEST_F(StatusWordPage, ReportsProvisioning) {
    setProvisioningServer();
    EXPECT_NE(me.page("settings-autop").text().find("Last run Never"), std::string::npos);
    const Answer answer = me.submit("settings-autop&now=true");
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.text().find("0 % The phone is being provisioned."), std::string::npos)
        << answer.text();
    EXPECT_EQ(notice(), "autoprovision");
    EXPECT_EQ(busy(), "autoprovision");
    advanceSeconds(5);
    EXPECT_NE(me.page("settings-autop").text().find("50 %"), std::string::npos);
    EXPECT_FALSE(me.page("settings-autop").leadsTo("/servlet?p=settings-autop&now=true"));
    advanceSeconds(4);
    EXPECT_EQ(notice(), "autoprovision");
    advanceSeconds(1);
    EXPECT_EQ(notice(), "idle");
    EXPECT_EQ(busy(), "idle");
    advanceSeconds(60);
    EXPECT_NE(me.page("settings-autop")
                  .text()
                  .find("Last run 1 min ago https://provisioning.example.com/a"),
              std::string::npos)
        << me.page("settings-autop").text();
}

TEST_F(StatusWordPage, IgnoresRequestsOfVisitorsWhoAreNotSignedIn) {
    Visitor stranger(*container);
    for (const char* query : {"notice&q=reboot", "notice&now=true", "notice&reboot=true",
                              "login&q=reboot", "status&quiet=p=notice&now=true"}) {
        stranger.page(query);
        EXPECT_EQ(notice(), "idle") << query;
    }
}

TEST_F(StatusWordPage, AllowsOneProvisioningAtATime) {
    setProvisioningServer();
    me.submit("settings-autop&now=true");
    const Answer answer = me.submit("settings-autop&now=true");
    EXPECT_EQ(answer.status, 409);
    EXPECT_EQ(answer.alert(), "The phone is busy. Try again in a moment.");
    EXPECT_NE(answer.text().find("The phone is being provisioned."), std::string::npos);
    EXPECT_EQ(notice(), "autoprovision");
}

TEST_F(StatusWordPage, StaysCorrectAfterRequestsForOtherPages) {
    setProvisioningServer();
    const char* const tasks[][2] = {{"settings-upgrade&q=reboot", "reboot"},
                                    {"settings-autop&now=true", "autoprovision"},
                                    {"settings-upgrade&q=reset", "reset"}};
    for (const auto& [query, word] : tasks) {
        me.submit(query, {{"confirm", "1"}});
        EXPECT_EQ(notice(), word);
        for (const char* other : {"status", "settings-config&q=import", "settings-autop",
                                  "language&to=en", "settings-config&q=localconfig&type=remove"}) {
            me.page(other);
            EXPECT_EQ(notice(), word) << "after " << other;
        }
        Visitor(*container, "192.0.2.66").page("settings-upgrade&q=reboot");
        EXPECT_EQ(notice(), word) << "after a request without signing in";
        advanceSeconds(10);
        EXPECT_EQ(notice(), "idle");
    }
}

TEST_F(StatusWordPage, ReportsIdleAfterARefusedRequest) {
    setProvisioningServer();
    for (const char* query :
         {"settings-upgrade&q=reboot", "settings-upgrade&q=reset", "settings-autop&now=true",
          "settings-config&q=localconfig&type=import", "settings-config&q=localconfig&type=remove",
          "status&reboot=true"}) {
        me.submitWithoutToken(query);
        EXPECT_EQ(notice(), "idle") << query << " without a token";
        me.page(query);
        EXPECT_EQ(notice(), "idle") << query << " by GET";
        Visitor(*container, "192.0.2.66").submitWithoutToken(query);
        EXPECT_EQ(notice(), "idle") << query << " without signing in";
    }
}

TEST_F(StatusWordPage, ReportsIdleAfterAnImmediateTask) {
    me.upload("settings-config&q=import",
              kit::testing::file("config", "c.xml", me.page("settings-config&q=export").body),
              kConfirmed);
    EXPECT_EQ(notice(), "idle");
    me.submit("settings-config&q=localconfig&type=import", kConfirmed);
    EXPECT_EQ(notice(), "idle");
}

TEST_F(StatusWordPage, IsNotAffectedByEvents) {
    me.submit("settings-upgrade&q=reboot", kConfirmed);
    event("key=1");
    event("command=ring&q=reboot");
    EXPECT_EQ(notice(), "reboot");
    advanceSeconds(8);
    event("key=1&reboot=true", "192.0.2.66");
    EXPECT_EQ(notice(), "idle");
}
