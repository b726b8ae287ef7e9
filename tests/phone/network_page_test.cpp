// Changes of the address on the page "network".
#include "phone_test.h"

using kit::testing::test_clock::advanceSeconds;

namespace {

constexpr const char* kThere = "//192.168.1.20/servlet?p=network";

class NetworkPage : public SignedInFixture {
protected:
    Answer moveTo(const std::string& address) {
        return me.submit("network", {{"mode", "static"},
                                     {"address", address},
                                     {"netmask", "255.255.255.0"},
                                     {"gateway", "192.168.1.1"},
                                     {"dns1", "192.168.1.2"},
                                     {"hostname", "hall-phone"}});
    }

    // Signs in at this address of the phone.
    Visitor at(const std::string& host) {
        Visitor there(*container, "192.0.2.9", host);
        there.signIn();
        return there;
    }

    std::string savedMode() const { return saved()->settings.network.mode; }
};

} // namespace

TEST_F(NetworkPage, ShowsTheLeaseOfAnAutomaticAddress) {
    const Answer page = me.page("network");
    EXPECT_NE(page.text().find("DHCP lease IP address 192.0.2.20"), std::string::npos)
        << page.text();
    moveTo("192.168.1.20");
    EXPECT_EQ(me.page("network").text().find("DHCP lease"), std::string::npos);
}

TEST_F(NetworkPage, LinksToTheNewAddressUntilItIsConfirmed) {
    EXPECT_FALSE(me.page("network").leadsTo(kThere));
    moveTo("192.168.1.20");
    const Answer page = me.page("network");
    EXPECT_EQ(page.done(), "Saved.");
    EXPECT_TRUE(page.leadsTo(kThere));
    EXPECT_FALSE(page.leadsTo("/servlet?p=network&q=confirm")) << "only from the new address";
    advanceSeconds(100);
    EXPECT_TRUE(me.page("network").leadsTo(kThere));
    Visitor there = at("192.168.1.20");
    EXPECT_TRUE(there.page("network").leadsTo("/servlet?p=network&q=confirm"));
    EXPECT_EQ(there.submit("network&q=confirm").location(), "/servlet?p=network");
    EXPECT_EQ(there.page("network").done(), "The new network settings are confirmed.");
    advanceSeconds(300);
    EXPECT_EQ(me.page("network").field("address"), "192.168.1.20");
    EXPECT_FALSE(me.page("network").leadsTo(kThere));
}

TEST_F(NetworkPage, UndoesAChangeThatIsNotConfirmed) {
    moveTo("192.168.1.20");
    advanceSeconds(120);
    const Answer page = me.page("network");
    EXPECT_EQ(page.alert(), "The change to 192.168.1.20 was not confirmed in time. The previous "
                            "settings are in use again.");
    EXPECT_EQ(page.field("mode"), "dhcp");
    EXPECT_EQ(savedMode(), "dhcp");
}

// Any request will do: the pages of the old address are out of reach.
TEST_F(NetworkPage, UndoesAChangeWithoutAVisitOfThePage) {
    moveTo("192.168.1.20");
    advanceSeconds(120);
    notice();
    EXPECT_EQ(savedMode(), "dhcp");
}

TEST_F(NetworkPage, UndoesAChangeAfterARestartOfTheDaemon) {
    moveTo("192.168.1.20");
    container.reset();
    advanceSeconds(120);
    restart();
    notice();
    EXPECT_EQ(savedMode(), "dhcp");
}

TEST_F(NetworkPage, UndoesAChangeOnRequest) {
    moveTo("192.168.1.20");
    EXPECT_EQ(me.submitWithoutToken("network&q=undo").status, 403);
    EXPECT_EQ(savedMode(), "static");
    EXPECT_EQ(me.submit("network&q=undo").status, 303);
    EXPECT_EQ(me.page("network").done(), "The previous network settings are in use again.");
    EXPECT_EQ(savedMode(), "dhcp");
}

TEST_F(NetworkPage, DoesNotAcceptAConfirmationFromTheOldAddress) {
    moveTo("192.168.1.20");
    EXPECT_EQ(me.submit("network&q=confirm").status, 303);
    EXPECT_EQ(me.page("network").alert(),
              "Not confirmed: this page was not opened at the new address, or the time was over.");
    advanceSeconds(120);
    notice();
    EXPECT_EQ(savedMode(), "dhcp");
}

// The attack: a page of another site, which the user visits, confirms the change.
TEST_F(NetworkPage, DoesNotAcceptAConfirmationFromAnotherSite) {
    moveTo("192.168.1.20");
    Visitor there = at("192.168.1.20");
    EXPECT_EQ(there.submitWithoutToken("network&q=confirm").status, 403);
    EXPECT_EQ(there.submitWithoutToken("network&q=confirm", {{"token", me.token()}}).status, 403)
        << "the token of another sign-in";
    EXPECT_EQ(there
                  .send(post("/servlet?p=network&q=confirm")
                            .form({{"token", there.token()}})
                            .variable("HTTP_ORIGIN", "http://example.com"))
                  .status,
              403);
    there.page("network&q=confirm"); // an image or a link
    EXPECT_EQ(Visitor(*container, "192.0.2.9", "192.168.1.20")
                  .submitWithoutToken("network&q=confirm")
                  .location(),
              std::string(kSignInForm) + "&jumpto=network");
    advanceSeconds(120);
    notice();
    EXPECT_EQ(savedMode(), "dhcp");
}

TEST_F(NetworkPage, KeepsThePortInTheLink) {
    Visitor there = at("192.0.2.1:8080");
    moveTo("192.168.1.20");
    EXPECT_TRUE(there.page("network").leadsTo("//192.168.1.20:8080/servlet?p=network"));
}

TEST_F(NetworkPage, PutsAnImportedAddressOnTrialToo) {
    const std::string text = me.page("settings-config&q=export").body;
    moveTo("192.168.1.20");
    at("192.168.1.20").submit("network&q=confirm");
    me.upload("settings-config&q=import", kit::testing::file("config", "c.xml", text), kConfirmed);
    EXPECT_EQ(savedMode(), "dhcp");
    advanceSeconds(120);
    notice();
    EXPECT_EQ(savedMode(), "static");
}

TEST_F(NetworkPage, DoesNotUndoAFactoryReset) {
    moveTo("192.168.1.20");
    at("192.168.1.20").submit("network&q=confirm");
    me.submit("network", {{"mode", "dhcp"}, {"hostname", "desk-phone"}});
    me.submit("settings-upgrade&q=reset", kConfirmed);
    advanceSeconds(300);
    notice();
    EXPECT_EQ(savedMode(), "dhcp");
}
