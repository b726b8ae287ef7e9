// The page "phone".
#include "phone_test.h"

namespace {

class PhonePage : public SignedInFixture {
protected:
    // Returns the state and the display as the page shows them.
    std::string shown() {
        const std::string text = me.page("phone").text();
        const auto from = text.find("State ");
        return text.substr(from, text.find(" Line keys") - from);
    }
    std::string lamps() {
        const std::string text = me.page("phone").text();
        const auto from = text.find("Line keys ");
        return text.substr(from, text.find(" Menu", from) - from);
    }
};

} // namespace

TEST_F(PhonePage, ShowsTheDisplayAndTheLamps) {
    EXPECT_EQ(me.page("phone").title(), "Phone");
    EXPECT_EQ(shown(), "State On hook Last key pressed – On the display Line 1 Ready");
    EXPECT_NE(lamps().find("Line keys Line 1 off Line 2 off"), std::string::npos) << lamps();
}

TEST_F(PhonePage, PressesKeys) {
    const Answer answer = me.submit("phone&q=key", {{"key", "4"}});
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=phone");
    me.submit("phone&q=key", {{"key", "POUND"}});
    EXPECT_EQ(shown(),
              "State Dialling Last key pressed POUND On the display Line 1: Dial 4# Hang up");
    EXPECT_NE(lamps().find("Line 1 on"), std::string::npos);
    EXPECT_NE(me.page("phone").text().find("Speaker on"), std::string::npos);
    me.submit("phone&q=key", {{"key", "OK"}});
    EXPECT_EQ(shown(),
              "State In a call Last key pressed OK On the display Line 1: In call 4# Hang up");
    me.submit("phone&q=key", {{"key", "HOLD"}});
    EXPECT_EQ(shown(),
              "State On hold Last key pressed HOLD On the display Line 1: On hold 4# Hang up");
    EXPECT_NE(lamps().find("Line 1 flashing"), std::string::npos);
}

TEST_F(PhonePage, CallsNumbersAndSimulatesTheOtherParty) {
    EXPECT_EQ(me.submit("phone", {{"number", "+49 30 1"}}).status, 303);
    EXPECT_EQ(shown(),
              "State In a call Last key pressed – On the display Line 1: In call +49 30 1 Hang up");
    EXPECT_EQ(me.submit("phone", {{"command", "hangup"}}).status, 303);
    EXPECT_EQ(me.submit("phone", {{"command", "ring"}}).status, 303);
    EXPECT_EQ(
        shown(),
        "State Ringing Last key pressed – On the display Line 1: Incoming call 1002 Answer Reject");
    EXPECT_EQ(me.submit("phone", {{"command", "message_on"}}).status, 303);
    EXPECT_NE(lamps().find("Messages flashing"), std::string::npos);
}

TEST_F(PhonePage, AnswersAndRejectsCalls) {
    event("command=ring");
    EXPECT_EQ(me.submit("phone&q=key", {{"command", "answer"}}).status, 303);
    EXPECT_NE(shown().find("Line 1: In call 1002"), std::string::npos) << shown();
    EXPECT_EQ(me.submit("phone&q=key", {{"command", "hangup"}}).status, 303);
    event("command=ring");
    EXPECT_EQ(me.submit("phone&q=key", {{"command", "hangup"}}).status, 303);
    EXPECT_EQ(shown(), "State On hook Last key pressed – On the display Line 1 Ready");
}

TEST_F(PhonePage, ShowsTheLabelsOfTheAccounts) {
    me.submit("accounts&acc=1",
              {{"label", "Hall <1>"}, {"port", "5060"}, {"transport", "udp"}, {"expiry", "3600"}});
    EXPECT_NE(lamps().find("Line 1 off Hall <1> off Line 3 off"), std::string::npos) << lamps();
    me.submit("phone&q=key", {{"key", "L2"}});
    EXPECT_NE(shown().find("On the display Hall <1>: Dial"), std::string::npos) << shown();
}

TEST_F(PhonePage, ShowsTheDisplayInTheLanguageOfTheRequest) {
    const struct {
        const char* language;
        const char* ready;
        const char* ringing;
        const char* menu;
    } cases[] = {
        {"en", "Line 1 Ready", "Line 1: Incoming call 1002", "Menu Settings: in the browser"},
        {"de", "Line 1 Bereit", "Line 1: Eingehender Anruf 1002", "Menü Einstellungen: im Browser"},
        {"zh", "Line 1 就绪", "Line 1：来电 1002", "菜单 请在浏览器中设置"},
    };
    for (const auto& each : cases) {
        const auto text = [&] {
            return me.send(get("/servlet?p=phone").header("Accept-Language", each.language)).text();
        };
        EXPECT_NE(text().find(each.ready), std::string::npos) << text();
        event("command=ring");
        EXPECT_NE(text().find(each.ringing), std::string::npos) << text();
        event("command=hangup");
        event("key=MENU");
        EXPECT_NE(text().find(each.menu), std::string::npos) << text();
        event("key=MENU");
    }
}

TEST_F(PhonePage, RejectsUnknownCommands) {
    const Fields wishes[] = {{{"key", "NONSENSE"}}, {{"key", ""}},           {{"key", "<b>"}},
                             {{"number", "abc"}},   {{"command", "answer"}}, {}};
    for (const Fields& wish : wishes) {
        const Answer answer = me.submit("phone&q=key", wish);
        EXPECT_EQ(answer.status, 422);
        EXPECT_EQ(answer.title(), "Phone");
        EXPECT_EQ(answer.alert(), "Unknown command, or not possible in the current call state.");
        EXPECT_EQ(shown(), "State On hook Last key pressed – On the display Line 1 Ready");
    }
}

TEST_F(PhonePage, RecordsNoEvents) {
    me.submit("phone&q=key", {{"key", "4"}});
    EXPECT_NE(me.page("status").text().find("0 since startup"), std::string::npos);
}

// The attack: a page of another site that the user visits makes the phone dial, in a browser on the
// computer that may send events.
TEST_F(PhonePage, IsNotDialledByOtherSites) {
    const Request dial = get("/servlet?number=900123").from("127.0.0.1");
    for (const Request& caused :
         {dial.header("Sec-Fetch-Site", "cross-site").header("Sec-Fetch-Mode", "no-cors"),
          dial.header("Sec-Fetch-Site", "cross-site").header("Sec-Fetch-Mode", "navigate"),
          dial.header("Referer", "http://attacker.example/"),
          dial.header("Host", "attacker.example")}) {
        EXPECT_GE(container->serve(caused).status, 400);
        EXPECT_EQ(shown(), "State On hook Last key pressed – On the display Line 1 Ready");
    }
    EXPECT_EQ(container->serve(dial).status, 200);
    EXPECT_NE(shown().find("900123"), std::string::npos) << "a program may";
}
