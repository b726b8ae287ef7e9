// The page "phone".
#include "phone_test.h"

namespace {

class PhonePage : public SignedInFixture {
protected:
    // Returns the state and the display as the page shows them.
    std::string shown() {
        const std::string text = me.page("phone").text();
        const auto from = text.find("State ");
        return text.substr(from, text.find(" Lamps") - from);
    }
    std::string lamps() {
        const std::string text = me.page("phone").text();
        const auto from = text.find("Line 1: ");
        return text.substr(from, text.find(" Keys") - from);
    }
};

} // namespace

TEST_F(PhonePage, ShowsTheDisplayAndTheLamps) {
    EXPECT_EQ(me.page("phone").title(), "Phone");
    EXPECT_EQ(shown(), "State On hook Last key pressed – On the display Line 1 Ready");
    EXPECT_NE(lamps().find("Line 1: off Line 2: off"), std::string::npos) << lamps();
}

TEST_F(PhonePage, PressesKeys) {
    const Answer answer = me.submit("phone&q=key", {{"key", "4"}});
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=phone");
    me.submit("phone&q=key", {{"key", "POUND"}});
    EXPECT_EQ(shown(), "State Dialling Last key pressed POUND On the display Line 1: Dial 4#");
    EXPECT_NE(lamps().find("Line 1: on"), std::string::npos);
    EXPECT_NE(lamps().find("Speaker: on"), std::string::npos);
    me.submit("phone&q=key", {{"key", "OK"}});
    EXPECT_EQ(shown(), "State In a call Last key pressed OK On the display Line 1: In call 4#");
    me.submit("phone&q=key", {{"key", "HOLD"}});
    EXPECT_EQ(shown(), "State On hold Last key pressed HOLD On the display Line 1: On hold 4#");
    EXPECT_NE(lamps().find("Line 1: flashing"), std::string::npos);
}

TEST_F(PhonePage, CallsNumbersAndSimulatesTheOtherParty) {
    EXPECT_EQ(me.submit("phone", {{"number", "+49 30 1"}}).status, 303);
    EXPECT_EQ(shown(),
              "State In a call Last key pressed – On the display Line 1: In call +49 30 1");
    EXPECT_EQ(me.submit("phone", {{"command", "hangup"}}).status, 303);
    EXPECT_EQ(me.submit("phone", {{"command", "ring"}}).status, 303);
    EXPECT_EQ(shown(),
              "State Ringing Last key pressed – On the display Line 1: Incoming call 1002");
    EXPECT_EQ(me.submit("phone", {{"command", "message_on"}}).status, 303);
    EXPECT_NE(lamps().find("Messages: flashing"), std::string::npos);
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
