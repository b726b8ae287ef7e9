#include "listeners/event_listener.h"
#include "listeners/sign_in_listener.h"
#include "visitor.h"

#include <gtest/gtest.h>

namespace {

class Listeners : public ::testing::Test {
protected:
    Listeners() {
        events.init();
        signIn.init();
    }

    phone::Phone phone;
    FakeSessions sessions;
    Visitor visitor{phone, sessions};
    phone::EventListener events{phone};
    phone::SignInListener signIn{phone};
};

const char* const kEvents[][3] = {
    {"/servlet?key=OK", "key", "OK"},
    {"/servlet?number=123", "number", "123"},
    {"/servlet?phonecfg=get", "phonecfg", "get"},
    {"/servlet?redirectcall=9", "redirectcall", "9"},
    {"/servlet?forward=9", "forward", "9"},
    {"/servlet?Server=on", "Server", "on"},
    {"/servlet?push=x", "push", "x"},
    {"/servlet?download=x", "download", "x"},
    {"/servlet?command=x", "command", "x"},
    {"/servlet?csta", "csta", ""},
    {"/servlet?cstaAnything=1&p=status", "csta", ""},
    {"/servlet?key=OK&p=status", "key", "OK"},
    {"/servlet?key=", "key", ""},
    {"/servlet?keyboard=1&key=OK", "key", "OK"},
};

// What the container treats as requests for pages, though some begin like events.
const char* const kPageRequests[] = {
    "/servlet?p=status",
    "/servlet?p=status&key=OK",
    "/servlet?keyboard=1&p=status",
    "/servlet?key1=2&p=status",
    "/servlet?numbers=1&p=x",
    "/servlet?server=on&p=x",
    "/servlet?KEY=OK&p=x",
    "/servlet",
    "/servlet?",
    "/",
    "",
};

} // namespace

TEST_F(Listeners, RecordEventsAndAnswerThemShortly) {
    for (const auto& event : kEvents) {
        SCOPED_TRACE(event[0]);
        const Answer answer = visitor.ask(events, event[0]);
        EXPECT_TRUE(answer.passed);
        EXPECT_EQ(answer.body, "OK\n");
        EXPECT_EQ(answer.headers.at("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(phone.events.recent()[0].name, event[1]);
        EXPECT_EQ(phone.events.recent()[0].value, event[2]);
        EXPECT_EQ(phone.events.recent()[0].remoteAddress, "192.0.2.7");
    }
    EXPECT_EQ(phone.events.recent().size(), std::size(kEvents));
}

TEST_F(Listeners, LeavePageRequestsToTheOthers) {
    for (const char* uri : kPageRequests) {
        SCOPED_TRACE(uri);
        const Answer answer = visitor.ask(events, uri);
        EXPECT_TRUE(answer.passed);
        EXPECT_EQ(answer.body, "");
        EXPECT_TRUE(answer.headers.empty());
    }
    EXPECT_TRUE(phone.events.recent().empty());
}

TEST_F(Listeners, LetEventsThroughWithoutASignIn) {
    for (const auto& event : kEvents) {
        EXPECT_TRUE(visitor.ask(signIn, event[0]).passed) << event[0];
    }
}

TEST_F(Listeners, LetTheSignInFormAndTheMaintenanceWordThrough) {
    EXPECT_TRUE(visitor.ask(signIn, "/servlet?p=login").passed);
    EXPECT_TRUE(visitor.ask(signIn, "/servlet?p=login&q=login").passed);
    EXPECT_TRUE(visitor.ask(signIn, "/servlet?p=notice").passed);
}

TEST_F(Listeners, TurnStrangersAwayFromAllElse) {
    for (const char* uri : kPageRequests) {
        const Answer answer = visitor.ask(signIn, uri);
        EXPECT_FALSE(answer.passed) << uri;
        EXPECT_EQ(answer.location.rfind("/servlet?p=login&q=loginForm", 0), 0u) << uri;
        EXPECT_EQ(answer.cookie, "") << uri;
    }
}

TEST_F(Listeners, RememberThePageThatAStrangerAskedFor) {
    const char* const redirects[][2] = {
        {"/servlet?p=status", "/servlet?p=login&q=loginForm&jumpto=status"},
        {"/servlet?p=settings-upgrade&q=reset",
         "/servlet?p=login&q=loginForm&jumpto=settings-upgrade"},
        {"/servlet?p=unknown", "/servlet?p=login&q=loginForm"},
        {"/servlet?p=statusx", "/servlet?p=login&q=loginForm"},
        {"/servlet?p=", "/servlet?p=login&q=loginForm"},
        {"/servlet", "/servlet?p=login&q=loginForm"},
    };
    for (const auto& redirect : redirects) {
        EXPECT_EQ(visitor.ask(signIn, redirect[0]).location, redirect[1]);
    }
}

TEST_F(Listeners, DoNotTakeASessionForASignIn) {
    visitor.sessionId = sessions.create()->getId();
    EXPECT_FALSE(visitor.ask(signIn, "/servlet?p=status").passed);
}

TEST_F(Listeners, LetThoseThroughWhoAreSignedIn) {
    visitor.signIn();
    const Answer answer = visitor.ask(signIn, "/servlet?p=status");
    EXPECT_TRUE(answer.passed);
    EXPECT_TRUE(answer.headers.empty());
}

TEST_F(Listeners, TurnAwayThoseWhoseSessionHasEnded) {
    visitor.signIn();
    sessions.find(visitor.sessionId)->invalidate();
    EXPECT_FALSE(visitor.ask(signIn, "/servlet?p=status").passed);
}
