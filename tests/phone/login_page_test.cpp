#include "pages/login_page.h"
#include "recorded_log.h"
#include "session_attributes.h"
#include "visitor.h"

#include <gtest/gtest.h>

namespace {

class LoginPage : public ::testing::Test {
protected:
    bool isSignedIn(const Visitor& somebody) {
        return sessions.find(somebody.sessionId) != nullptr &&
               phone.signIns.find(somebody.sessionId).has_value();
    }

    phone::Phone phone;
    FakeSessions sessions;
    Visitor visitor{phone, sessions};
    phone::LoginPage page{phone};
};

} // namespace

TEST_F(LoginPage, ShowsTheFormByDefault) {
    for (const char* uri : {"/servlet?p=login", "/servlet?p=login&q=loginForm",
                            "/servlet?p=login&q=anything", "/servlet?p=login&q=login"}) {
        const Answer answer = visitor.get(page, uri);
        EXPECT_EQ(answer.page, "login.html") << uri;
        EXPECT_EQ(answer.status, "") << uri;
        EXPECT_EQ(answer.variable("message"), "") << uri;
        EXPECT_EQ(answer.cookie, "") << uri;
    }
}

TEST_F(LoginPage, CarriesThePageToGoOnTo) {
    EXPECT_EQ(visitor.get(page, "/servlet?p=login&jumpto=session").variable("jumpto"), "session");
    EXPECT_EQ(visitor.get(page, "/servlet?p=login&jumpto=elsewhere").variable("jumpto"), "");
}

TEST_F(LoginPage, SignsInWithTheRightPassword) {
    recorded_log::clear();
    const Answer answer = visitor.signIn();
    EXPECT_EQ(answer.status, "303");
    EXPECT_EQ(answer.location, "/servlet?p=status");
    EXPECT_EQ(answer.cookie, "JSESSIONID=" + visitor.sessionId + " ");
    EXPECT_TRUE(isSignedIn(visitor));
    EXPECT_EQ(recorded_log::records(),
              std::vector{recorded_log::webDebug("info", "Signed in: admin from 192.0.2.7")});
}

TEST_F(LoginPage, LogsWhereAWrongPasswordCameFrom) {
    recorded_log::clear();
    visitor.signIn("user=admin&password=wrong");
    EXPECT_EQ(recorded_log::records(), std::vector{recorded_log::webDebug(
                                           "warn", "Wrong user name or password from 192.0.2.7")});
}

TEST_F(LoginPage, GoesOnToThePageThatWasAskedFor) {
    const char* const pages[][2] = {
        {"session", "/servlet?p=session"},
        {"settings-upgrade", "/servlet?p=settings-upgrade"},
        {"elsewhere", "/servlet?p=status"},
        {"login", "/servlet?p=status"},
        {"x\r\nSet-Cookie: a", "/servlet?p=status"},
        {"", "/servlet?p=status"},
    };
    for (const auto& [jumpto, location] : pages) {
        const Answer answer =
            visitor.signIn(std::string("user=admin&password=admin&jumpto=") + jumpto);
        EXPECT_EQ(answer.location, location);
    }
}

TEST_F(LoginPage, ShowsTheFormAgainAfterAWrongPassword) {
    for (const char* form : {"user=admin&password=wrong", "user=admin&password=", "user=admin", "",
                             "password=admin", "user=root&password=admin"}) {
        const Answer answer = visitor.signIn(std::string(form) + "&jumpto=session");
        EXPECT_EQ(answer.status, "403") << form;
        EXPECT_EQ(answer.page, "login.html") << form;
        EXPECT_EQ(answer.variable("message"), "Wrong user name or password.") << form;
        EXPECT_EQ(answer.variable("jumpto"), "session") << form;
        EXPECT_EQ(answer.cookie, "") << form;
        EXPECT_EQ(answer.location, "") << form;
    }
}

TEST_F(LoginPage, DoesNotSignInByALink) {
    const Answer answer = visitor.get(page, "/servlet?p=login&q=login&user=admin&password=admin");
    EXPECT_EQ(answer.page, "login.html");
    EXPECT_EQ(answer.cookie, "");
}

TEST_F(LoginPage, StartsANewSessionWhoeverKnewTheOldOne) {
    FakeSession* planted = sessions.create();
    visitor.sessionId = planted->getId();
    visitor.signIn();
    EXPECT_NE(visitor.sessionId, planted->getId());
    EXPECT_TRUE(isSignedIn(visitor));
    EXPECT_FALSE(planted->isValid());
    EXPECT_FALSE(phone.signIns.find(planted->getId()));
}

TEST_F(LoginPage, EndsTheFormerSignInOfAClientThatSignsInAgain) {
    visitor.signIn();
    const std::string former = visitor.sessionId;
    visitor.signIn();
    EXPECT_NE(visitor.sessionId, former);
    EXPECT_EQ(sessions.find(former), nullptr);
    EXPECT_FALSE(phone.signIns.find(former));
}

TEST_F(LoginPage, KeepsASignInWhenAnotherClientGetsThePasswordWrong) {
    visitor.signIn();
    Visitor other(phone, sessions);
    other.signIn("user=admin&password=wrong");
    EXPECT_TRUE(isSignedIn(visitor));
    EXPECT_FALSE(isSignedIn(other));
}

TEST_F(LoginPage, StoresInTheSessionWhoSignedIn) {
    visitor.signIn();
    FakeSession* session = sessions.find(visitor.sessionId);
    const auto* user =
        static_cast<const phone::WebUser*>(session->getAttribute(phone::kUserAttribute));
    ASSERT_NE(user, nullptr);
    EXPECT_STREQ(user->name, "admin");
    EXPECT_STREQ(static_cast<const char*>(session->getAttribute(phone::kRoleAttribute)),
                 "administrator");
    EXPECT_STREQ(static_cast<const char*>(session->getAttribute(phone::kLanguageAttribute)),
                 "English");
}

TEST_F(LoginPage, SignsOut) {
    visitor.signIn();
    const Answer answer = visitor.post(page, "/servlet?p=login&q=logout" + visitor.token());
    EXPECT_EQ(answer.status, "303");
    EXPECT_EQ(answer.location, "/servlet?p=login&q=loginForm");
    EXPECT_FALSE(phone.signIns.find(visitor.sessionId));
}

TEST_F(LoginPage, LeavesASessionThatSignedOutToExpireSoon) {
    visitor.signIn();
    visitor.post(page, "/servlet?p=login&q=logout" + visitor.token());
    FakeSession* session = sessions.find(visitor.sessionId);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->getMaxInactiveInterval(), 1);
    EXPECT_FALSE(session->existAttribute(phone::kUserAttribute));
    EXPECT_FALSE(session->existAttribute(phone::kRoleAttribute));
    EXPECT_FALSE(session->existAttribute(phone::kLanguageAttribute));
}

TEST_F(LoginPage, DoesNotSignOutForAnotherSite) {
    visitor.signIn();
    EXPECT_EQ(visitor.post(page, "/servlet?p=login&q=logout").status, "403");
    EXPECT_EQ(visitor.post(page, "/servlet?p=login&q=logout&token=").status, "403");
    EXPECT_EQ(visitor.get(page, "/servlet?p=login&q=logout" + visitor.token()).status, "403");
    EXPECT_TRUE(isSignedIn(visitor));
}

TEST_F(LoginPage, SendsAStrangerWhoSignsOutToTheForm) {
    const Answer answer = visitor.post(page, "/servlet?p=login&q=logout");
    EXPECT_EQ(answer.location, "/servlet?p=login&q=loginForm");
    EXPECT_EQ(answer.cookie, "");
}
