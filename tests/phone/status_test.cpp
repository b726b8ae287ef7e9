// The pages "status" and "status-data", and the events that both show.
#include "json_reader.h"
#include "phone_test.h"

using StatusData = PhoneFixture;

namespace {

class StatusPage : public SignedInFixture {
protected:
    // Makes the uptime 0.
    void restartThePhone() {
        me.submit("settings-upgrade&q=reboot", kConfirmed);
        kit::testing::test_clock::advanceSeconds(8);
    }
    std::map<std::string, std::string> data() { return readJson(me.page("status-data").body); }
};

// Untrusted texts of many kinds.
const std::string kHostileTexts[] = {
    "<img src=x onerror=alert(1)>",
    "\"><script>alert(1)</script>",
    "'\"&amp;</td></table>\\\\u0041",
    std::string("\x01\x02\x1b[31m\x7f\r\n\t"),
    "\xff\xfe\xc0\xaf\xed\xa0\x80",
    "caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x93\x9E \xE2\x80\xA8",
    std::string(63, 'x') + "\xC3\xA9" + std::string(1000, 'y'),
};

} // namespace

TEST_F(StatusPage, ShowsTheModelAndTheFirmware) {
    const Answer page = me.page("status");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.title(), "Status");
    EXPECT_NE(page.text().find("Model Desk phone Firmware "), std::string::npos) << page.text();
    EXPECT_NE(page.text().find(" KiB free"), std::string::npos);
    EXPECT_NE(page.text().find("No events yet."), std::string::npos);
}

TEST_F(StatusPage, ShowsTheUptime) {
    const std::string before = data().at("uptime.seconds");
    kit::testing::test_clock::advanceSeconds(90);
    EXPECT_EQ(data().at("uptime.seconds"), std::to_string(std::stol(before) + 90));
}

TEST_F(StatusPage, ShowsDurationsInTheLargestTwoUnits) {
    restartThePhone();
    event("key=OK");
    const struct {
        long seconds;
        const char* uptime;
        const char* ago;
    } cases[] = {
        {0, "less than a minute", "just now"},
        {59, "less than a minute", "just now"},
        {60, "1 min", "1 min ago"},
        {59 * 60 + 59, "59 min", "59 min ago"},
        {3600, "1 h", "1 h ago"},
        {3 * 3600 + 5 * 60, "3 h 5 min", "3 h ago"},
        {86400 + 60, "1 day", "1 day ago"},
        {2 * 86400 + 3 * 3600 + 5 * 60, "2 days 3 h", "2 days ago"},
    };
    long now = 0;
    for (const auto& each : cases) {
        kit::testing::test_clock::advanceSeconds(static_cast<int>(each.seconds - now));
        now = each.seconds;
        Visitor visitor(*container);
        visitor.signIn();
        const std::string text = visitor.page("status").text();
        EXPECT_NE(text.find(std::string("Uptime ") + each.uptime + " Network"), std::string::npos)
            << text;
        EXPECT_NE(text.find(std::string("Result ") + each.ago + " "), std::string::npos) << text;
    }
}

TEST_F(StatusPage, SaysDurationsInTheLanguageOfTheRequest) {
    restartThePhone();
    event("key=OK");
    kit::testing::test_clock::advanceSeconds(2 * 86400 + 3600);
    const struct {
        const char* language;
        const char* uptime;
        const char* ago;
    } cases[] = {{"de", "2 Tage 1 Std.", "vor 2 Tagen"}, {"zh", "2 天 1 小时", "2 天前"}};
    for (const auto& each : cases) {
        Visitor visitor(*container);
        visitor.signIn();
        const std::string text =
            visitor.send(get("/servlet?p=status").header("Accept-Language", each.language)).text();
        EXPECT_NE(text.find(each.uptime), std::string::npos) << text;
        EXPECT_NE(text.find(each.ago), std::string::npos) << text;
    }
}

TEST_F(StatusPage, ServesTheHistoryToPagesThatAskForIt) {
    EXPECT_EQ(data().count("history.next"), 0U);
    for (const char* since : {"0", "7", "99999999999999999999999", "-1", "x", ""}) {
        const auto values = readJson(me.page(std::string("status-data&since=") + since).body);
        EXPECT_EQ(values.at("history.next"), "0") << since;
        EXPECT_EQ(values.at("history.events"), "0") << since;
        EXPECT_EQ(values.count("history.samples[0][0]"), 0U) << since;
    }
}

TEST_F(StatusPage, ShowsTheRegistrationOfTheAccounts) {
    me.submit("accounts&acc=1", {{"enabled", "1"},
                                 {"label", "<b>Hall"},
                                 {"userName", "1002"},
                                 {"server", "sip.invalid"},
                                 {"port", "5060"},
                                 {"transport", "udp"},
                                 {"expiry", "3600"}});
    const Answer page = me.page("status");
    EXPECT_NE(page.text().find("Line 1 Registered <b>Hall Failed Line 3 Off"), std::string::npos)
        << page.text();
    EXPECT_TRUE(page.leadsTo("/servlet?p=accounts&acc=1"));
    EXPECT_EQ(data().at("accounts[0].label"), "Line 1");
    EXPECT_EQ(data().at("accounts[0].state"), "registered");
    EXPECT_EQ(data().at("accounts[1].label"), "<b>Hall");
    EXPECT_EQ(data().at("accounts[1].state"), "failed");
    EXPECT_EQ(data().at("accounts[5].state"), "off");
    EXPECT_EQ(data().count("accounts[6].state"), 0U);
}

TEST_F(StatusPage, ServesLiveDataAsJson) {
    const Answer answer = me.page("status-data");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/json");
    const auto values = readJson(answer.body);
    EXPECT_GT(std::stoull(values.at("memory.total")), 0U);
    EXPECT_LE(std::stoull(values.at("memory.available")), std::stoull(values.at("memory.total")));
    EXPECT_EQ(values.count("traffic.received"), 1U);
    EXPECT_EQ(values.count("traffic.sent"), 1U);
    EXPECT_EQ(values.at("events.count"), "0");
    EXPECT_EQ(values.at("desk.lineLabel"), "Line 1");
    EXPECT_EQ(values.at("desk.screen"), "ready");
    EXPECT_EQ(values.at("desk.digits"), "");
    EXPECT_EQ(values.at("desk.state"), "idle");
    EXPECT_EQ(values.at("desk.key"), "");
    EXPECT_EQ(values.at("desk.presses"), "0");
    EXPECT_EQ(values.at("desk.lamps.L1"), "off");
    EXPECT_EQ(values.at("desk.lamps.L6"), "off");
    EXPECT_EQ(values.at("desk.lamps.message"), "off");
    EXPECT_EQ(values.at("busy.word"), "idle");
    EXPECT_EQ(values.at("busy.percent"), "100");
}

TEST_F(StatusData, IsRefusedWithoutSigningIn) {
    const Answer answer = Visitor(*container).page("status-data");
    EXPECT_EQ(answer.status, 403);
    EXPECT_EQ(answer.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(answer.body, "Not signed in.\n");
}

TEST_F(StatusPage, ShowsEventsFromAllowedAddresses) {
    const Answer answer = event("key=5");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "OK\n");
    EXPECT_EQ(data().at("desk.state"), "dialing");
    EXPECT_EQ(data().at("desk.digits"), "5");
    EXPECT_EQ(event("key=CANCEL").status, 200);
    EXPECT_EQ(event("key=CANCEL").status, 200);
    EXPECT_EQ(event("number=%2B49%2030%20555").status, 200);
    EXPECT_EQ(data().at("desk.state"), "talking");
    EXPECT_EQ(data().at("desk.digits"), "+49 30 555");
    EXPECT_EQ(event("command=hangup").status, 200);
    EXPECT_EQ(event("command=ring").status, 200);
    EXPECT_EQ(data().at("desk.state"), "ringing");
    EXPECT_EQ(data().at("desk.lamps.L1"), "blinking");
}

TEST_F(StatusPage, RefusesEventsFromOtherAddresses) {
    for (const char* query : {"key=5", "number=123", "command=ring", "csta"}) {
        const Answer answer = event(query, "192.0.2.66");
        EXPECT_EQ(answer.status, 403) << query;
        EXPECT_EQ(answer.body, "This address may not send events.\n") << query;
    }
    const auto values = data();
    EXPECT_EQ(values.at("desk.state"), "idle");
    EXPECT_EQ(values.at("events.count"), "4");
    EXPECT_EQ(values.at("events.recent[1].name"), "command");
    EXPECT_EQ(values.at("events.recent[1].value"), "ring");
    EXPECT_EQ(values.at("events.recent[1].from"), "192.0.2.66");
    EXPECT_EQ(values.at("events.recent[1].result"), "notAllowed");
    EXPECT_NE(me.page("status").text().find("command ring 192.0.2.66 Refused"), std::string::npos);
}

TEST_F(StatusPage, RefusesEventsOfSignedInUsersFromOtherAddresses) {
    EXPECT_EQ(me.send(get("/servlet?key=5&token=" + me.token())).status, 403);
    EXPECT_EQ(data().at("desk.state"), "idle");
}

TEST_F(StatusPage, ReportsEventsThatCannotBeCarriedOut) {
    for (const char* query : {"key=NONSENSE", "key=", "number=abc", "number=", "command=nonsense",
                              "command=answer", "phonecfg=x", "redirectcall=1", "forward=1",
                              "Server=x", "push=x", "download=x", "csta"}) {
        const Answer answer = event(query);
        EXPECT_EQ(answer.status, 400) << query;
        EXPECT_EQ(answer.body, "Unknown command, or not possible in the current call state.\n")
            << query;
        EXPECT_EQ(data().at("events.recent[0].result"), "notPossible") << query;
    }
    EXPECT_EQ(data().at("events.recent[0].name"), "csta");
    EXPECT_EQ(data().at("events.recent[0].value"), "");
    EXPECT_EQ(data().at("desk.state"), "idle");
}

TEST_F(StatusPage, TreatsAddressesThatOnlyBeginLikeAnEventAsPages) {
    const Answer answer = me.send(get("/servlet?keyboard=1&p=audio"));
    EXPECT_EQ(answer.title(), "Audio");
    EXPECT_EQ(data().at("events.count"), "0");
    EXPECT_EQ(Visitor(*container).send(get("/servlet?keyboard=1&p=audio")).status, 303);
}

TEST_F(StatusPage, DoesNotServePagesWithoutSigningInAsEvents) {
    const Answer answer = event("csta&p=status", "192.0.2.66");
    EXPECT_EQ(answer.status, 403);
    EXPECT_EQ(answer.body, "This address may not send events.\n");
}

TEST_F(StatusPage, ShowsTheNewestEventsFirstAndCountsAll) {
    for (int i = 1; i <= 25; ++i) {
        event("number=" + std::to_string(100 + i));
        event("command=hangup");
    }
    const auto values = data();
    EXPECT_EQ(values.at("events.count"), "50");
    EXPECT_EQ(values.at("events.recent[0].value"), "hangup");
    EXPECT_EQ(values.at("events.recent[1].value"), "125");
    EXPECT_EQ(values.at("events.recent[1].result"), "done");
    EXPECT_EQ(values.at("events.recent[19].value"), "116");
    EXPECT_EQ(values.count("events.recent[20].value"), 0U);
    const std::string text = me.page("status").text();
    EXPECT_NE(text.find("50 since startup"), std::string::npos);
    EXPECT_NE(text.find("number 125 127.0.0.1"), std::string::npos) << text;
    EXPECT_EQ(text.find("number 115 127.0.0.1"), std::string::npos) << text;
    EXPECT_EQ(text.find("No events yet."), text.npos) << "hidden, but readable: " << text;
}

TEST_F(StatusPage, EscapesHostileEvents) {
    for (const std::string& hostile : kHostileTexts) {
        Visitor stranger(*container, "192.0.2.66");
        EXPECT_EQ(stranger.send(post("/servlet?key").form({{"key", hostile}})).status, 403);
        const Answer json = me.page("status-data");
        EXPECT_EQ(json.body.find('<'), std::string::npos);
        EXPECT_NO_THROW(readJson(json.body)) << json.body;
        const std::string page = me.page("status").body;
        EXPECT_EQ(page.find("<img"), std::string::npos);
        EXPECT_EQ(page.find("alert(1)</script>"), std::string::npos);
        EXPECT_EQ(page.find("</td></table>\\"), std::string::npos);
    }
    EXPECT_NE(me.page("status").text().find("key <img src=x onerror=alert(1)> 192.0.2.66"),
              std::string::npos);
    const auto values = data();
    EXPECT_EQ(values.at("events.recent[6].value"), kHostileTexts[0]);
    EXPECT_EQ(values.at("events.recent[1].value"), kHostileTexts[5]);
    EXPECT_EQ(values.at("events.recent[0].value"), std::string(63, 'x'))
        << "cut between characters";
}

TEST_F(StatusPage, ServesValidJsonForHostileEvents) {
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
        if (text.size() == 60 || byte == 255) {
            Visitor(*container, "192.0.2.66").send(post("/servlet?key").form({{"key", text}}));
            EXPECT_NO_THROW(data()) << me.page("status-data").body;
            text.clear();
        }
    }
    EXPECT_EQ(data().at("events.count"), "5");
}
