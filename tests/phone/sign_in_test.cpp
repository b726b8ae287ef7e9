// Signing in and out.
#include "phone_test.h"

#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

using SignInPage = PhoneFixture;
using SignOut = SignedInFixture;
using kit::testing::test_clock::advanceSeconds;

namespace {

std::function<void()> beforeNextToken;

} // namespace

// Called by the plug-in library, see test_phone.cpp.
extern "C" __attribute__((visibility("default"))) void phoneTestBeforeToken() {
    if (const auto action = std::exchange(beforeNextToken, nullptr)) {
        action();
    }
}

namespace {

TEST_F(SignInPage, IsShownOnTheFirstVisit) {
    const Answer form = Visitor(*container).page("login&q=loginForm");
    EXPECT_EQ(form.status, 200);
    EXPECT_EQ(form.title(), "Sign in");
    EXPECT_EQ(form.field("user"), "");
    EXPECT_EQ(form.field("password"), "");
    EXPECT_EQ(form.alert(), "");
    EXPECT_TRUE(form.leadsTo("/servlet?p=login&q=login"));
}

TEST_F(SignInPage, RedirectsToTheStatusPage) {
    Visitor ann(*container);
    const Answer answer = ann.signIn();
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=status");
    EXPECT_EQ(ann.page("status").title(), "Status");
}

TEST_F(SignInPage, RedirectsToThePageThatWasRequested) {
    for (const char* id :
         {"status", "phone", "accounts", "network", "audio", "security", "contacts",
          "contacts-preview", "settings-config", "settings-upgrade", "settings-autop"}) {
        Visitor ann(*container);
        const Answer refused = ann.page(id);
        EXPECT_EQ(refused.status, 303) << id;
        EXPECT_EQ(refused.location(), std::string(kSignInForm) + "&jumpto=" + id);
        EXPECT_EQ(refused.body, "") << id;
        const Answer form = ann.send(get(refused.location()));
        EXPECT_EQ(form.field("jumpto"), id);
        const Answer answer = ann.submitSignIn(
            {{"user", "admin"}, {"password", kPassword}, {"jumpto", *form.field("jumpto")}});
        EXPECT_EQ(answer.location(), std::string("/servlet?p=") + id);
        EXPECT_EQ(ann.page(id).status, 200) << id;
    }
}

TEST_F(SignInPage, ReturnsToTheWholeAddress) {
    const std::string view(200, 'x');
    struct {
        std::string asked, back, reached;
    } const cases[] = {
        {"accounts&acc=1", "accounts&view=acc%3D1", "accounts&acc=1"},
        {"contacts&page=2&a%26b=%25&q=all", "contacts&view=page%3D2%26a%2526b%3D%2525",
         "contacts&page=2&a%26b=%25"},
        {"settings-autop&now=true&token=x&jumpto=status", "settings-autop", "settings-autop"},
        {"status&" + view, "status&view=" + view, "status&" + view},
        {"status&x" + view, "status", "status"},
        {"status&a=(b)", "status", "status"},
    };
    for (const auto& [asked, back, reached] : cases) {
        Visitor ann(*container);
        const Answer refused = ann.page(asked);
        EXPECT_EQ(refused.location(), std::string(kSignInForm) + "&jumpto=" + back) << asked;
        const Answer form = ann.send(get(refused.location()));
        EXPECT_TRUE(form.leadsTo("/servlet?p=language&to=de&back=login&jumpto=" + back)) << asked;
        EXPECT_EQ(ann.page("language&to=en&back=login&jumpto=" + back).location(),
                  refused.location());
        const Answer answer = ann.submitSignIn({{"user", "admin"},
                                                {"password", kPassword},
                                                {"jumpto", *form.field("jumpto")},
                                                {"view", *form.field("view")}});
        EXPECT_EQ(answer.location(), "/servlet?p=" + reached);
        for (const char* same : {"login&q=loginForm&jumpto=", "language&to=en&back="}) {
            EXPECT_EQ(ann.page(same + back).location(), "/servlet?p=" + reached) << same;
        }
    }
}

// The attack: a link to the sign-in form leads the user to another site afterwards.
TEST_F(SignInPage, ReturnsToNoOtherSite) {
    for (const char* view : {"//example.com", "x%0d%0aLocation:%20//example.com", "x%22%3E",
                             "a%20b", "javascript:1", "%23"}) {
        const std::string more = std::string("&jumpto=status&view=") + view;
        Visitor ann(*container);
        const Answer form = ann.page("login&q=loginForm" + more);
        EXPECT_EQ(form.field("view").value_or(""), "") << view;
        const Answer answer = ann.submitSignIn({{"user", "admin"}, {"password", kPassword}}, more);
        EXPECT_TRUE(answer.status == 404 || answer.location() == "/servlet?p=status") << view;
    }
}

TEST_F(SignInPage, SaysThatASessionHasEnded) {
    Visitor ann(*container);
    EXPECT_EQ(ann.send(get(ann.page("audio").location())).done(), "") << "there was none";
    ann.signIn();
    advanceSeconds(600);
    const Answer refused = ann.submit("accounts&q=save&acc=1", {{"label", "Hall"}});
    EXPECT_EQ(refused.location(),
              std::string(kSignInForm) + "&jumpto=accounts&view=acc%3D1&ended=1");
    const Answer form = ann.send(get(refused.location()));
    EXPECT_NE(form.done().find("You are no longer signed in."), std::string::npos);
    EXPECT_EQ(form.field("ended"), "1") << "for the form after a wrong password";

    ann.signIn();
    ann.submit("login&q=logout");
    EXPECT_EQ(ann.page("audio").location(), std::string(kSignInForm) + "&jumpto=audio")
        << "the user has ended it";
}

TEST_F(SignInPage, RedirectsToPagesOfThePhoneOnly) {
    for (const char* target : {"nonsense", "login", "status-data", "language", "STATUS", ""}) {
        Visitor ann(*container);
        const std::string jump = std::string("&jumpto=") + target;
        EXPECT_FALSE(ann.page("login&q=loginForm" + jump).field("jumpto")) << target;
        const Answer answer = ann.submitSignIn({{"user", "admin"}, {"password", kPassword}}, jump);
        EXPECT_EQ(answer.location(), "/servlet?p=status") << target;
    }
    Visitor ann(*container);
    const Answer outside = ann.submitSignIn(
        {{"user", "admin"}, {"password", kPassword}, {"jumpto", "//example.com/"}});
    EXPECT_EQ(outside.status, 404);
    EXPECT_EQ(ann.page("status").status, 303);
}

TEST_F(SignInPage, RejectsAWrongNameOrPasswordWithTheSameAnswer) {
    const Fields attempts[] = {{{"user", "admin"}, {"password", "wrong"}},
                               {{"user", "nobody"}, {"password", kPassword}},
                               {{"user", "admin"}},
                               {{"password", kPassword}},
                               {}};
    int number = 1;
    for (const Fields& attempt : attempts) {
        Visitor ann(*container, "192.0.2." + std::to_string(number++));
        const Answer answer = ann.submitSignIn(attempt);
        EXPECT_EQ(answer.status, 403);
        EXPECT_EQ(answer.alert(), "Wrong user name or password.");
        EXPECT_EQ(answer.field("password"), "");
        EXPECT_FALSE(answer.cookie("JSESSIONID"));
        EXPECT_FALSE(answer.cookie("signIn"));
        EXPECT_EQ(ann.page("status").status, 303);
    }
}

TEST_F(SignInPage, ShowsTheNameEnteredButNotThePassword) {
    Visitor ann(*container);
    const Answer answer = ann.signIn("\"><b>secret", "<i>\"ann");
    EXPECT_EQ(answer.field("user"), "<i>\"ann");
    EXPECT_EQ(answer.body.find("<i>"), std::string::npos);
    EXPECT_EQ(answer.body.find("secret"), std::string::npos);
}

TEST_F(SignInPage, DoesNotLogPasswords) {
    Visitor(*container).signIn("open sesame");
    bool told = false;
    for (const auto& record : kit::testing::recorded_log::records()) {
        EXPECT_EQ(record.text.find("sesame"), std::string::npos) << record;
        told = told || record.text.find("from 192.0.2.7") != std::string::npos;
    }
    EXPECT_TRUE(told);
}

// The attack: whoever knows the old password signs in while its owner changes it.
TEST_F(SignInPage, ChecksAgainThatThePasswordIsTheSame) {
    Visitor owner(*container, "192.0.2.8");
    owner.signIn();
    Visitor ann(*container);
    ann.page("login&q=loginForm");
    beforeNextToken = [&] {
        const Fields change{{"oldPassword", kPassword},
                            {"newPassword", "quiet harbour"},
                            {"repeat", "quiet harbour"}};
        std::thread([&] {
            EXPECT_EQ(owner.submit("security&q=password", change).status, 303);
        }).join();
    };
    ann.submitSignIn({{"user", "admin"}, {"password", kPassword}});
    EXPECT_FALSE(beforeNextToken) << "the password was changed while she signed in";
    EXPECT_EQ(ann.page("status").status, 303);
    EXPECT_EQ(owner.page("status").status, 200);
}

TEST_F(SignInPage, DoesNotSignInByGet) {
    Visitor ann(*container);
    const Answer answer = ann.page("login&q=login&user=admin&password=garden+gate");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.title(), "Sign in");
    EXPECT_EQ(ann.page("status").status, 303);
}

TEST_F(SignInPage, LimitsTheRateOfAttempts) {
    Visitor guesser(*container);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(guesser.signIn("guess").status, 403);
    }
    const Answer slower = guesser.signIn(kPassword);
    EXPECT_EQ(slower.status, 429);
    EXPECT_EQ(slower.header("Retry-After"), "2");
    EXPECT_EQ(slower.alert(), "Too many attempts. Try again in 2 seconds.");
    EXPECT_EQ(guesser.page("status").status, 303);
    EXPECT_EQ(Visitor(*container, "192.0.2.8").signIn().status, 303)
        << "other addresses are not limited";

    advanceSeconds(2);
    EXPECT_EQ(guesser.signIn("guess").status, 403);
    EXPECT_EQ(guesser.signIn(kPassword).header("Retry-After"), "4") << "twice as long";
    advanceSeconds(4);
    EXPECT_EQ(guesser.signIn(kPassword).status, 303);
    EXPECT_EQ(Visitor(*container).signIn("guess").status, 403) << "the limit is reset";
}

TEST_F(SignInPage, SetsAnHttpOnlySameSiteCookie) {
    const auto cookie = Visitor(*container).signIn().cookie("JSESSIONID");
    ASSERT_TRUE(cookie);
    EXPECT_TRUE(cookie->attribute("HttpOnly"));
    EXPECT_EQ(cookie->attribute("SameSite"), "Lax");
    EXPECT_EQ(cookie->attribute("Path"), "/");
    EXPECT_FALSE(cookie->attribute("Max-Age")) << "a session cookie";
}

// The attack: a page of another site sends wrong passwords, so that the visitor's own address has
// to wait.
TEST_F(SignInPage, CountsOnlyAttemptsFromItsOwnForm) {
    Visitor ann(*container);
    for (int i = 0; i < 20; ++i) {
        const Answer foreign = ann.submitWithoutToken(
            "login&q=login", {{"user", "admin"}, {"password", "wrong"}, {"token", "0"}});
        EXPECT_EQ(foreign.status, 403);
        EXPECT_EQ(foreign.alert(), "This form is out of date. Please try again.");
        EXPECT_EQ(foreign.field("token"), ann.cookie("formToken"));
    }
    EXPECT_EQ(ann.submitWithoutToken("login&q=login", {{"user", "admin"}, {"password", kPassword}})
                  .status,
              403)
        << "nor does the right password sign in";
    EXPECT_EQ(ann.signIn().status, 303);
}

// The attack: whoever damages the files signs in with the factory password.
TEST_F(SignInPage, StaysClosedWithoutAPassword) {
    container.reset();
    for (const char* name : {"password.1", "password.2", "state.xml"}) {
        writeTextFile(folder.file(std::string("phone/") + name), "garbage");
    }
    restart();
    Visitor ann(*container);
    for (const Answer& answer : {ann.page("login&q=loginForm"), ann.signIn()}) {
        EXPECT_EQ(answer.status, 503);
        EXPECT_EQ(answer.alert(), "The phone cannot read its password, so nobody can sign in. To "
                                  "get back in, reset the phone to its factory settings at the "
                                  "device itself.");
        EXPECT_FALSE(answer.leadsTo("/servlet?p=login&q=login"));
    }
    EXPECT_EQ(ann.page("status").status, 303);

    resetAtTheDevice();
    EXPECT_EQ(Visitor(*container).signIn(kFactoryPassword).status, 303);
}

// The attack: the browser of somebody in the network takes the attacker's name for the phone's.
TEST_F(SignInPage, IsNotShownUnderForeignNames) {
    Visitor victim(*container);
    const Request form = get("/servlet?p=login&q=loginForm").header("Host", "attacker.example");
    EXPECT_EQ(victim.send(form).status, 421);
    EXPECT_EQ(victim
                  .send(post("/servlet?p=login&q=login")
                            .header("Host", "attacker.example")
                            .form({{"user", "admin"}, {"password", kPassword}}))
                  .status,
              421);
    EXPECT_FALSE(victim.cookie("JSESSIONID"));
}

TEST_F(SignInPage, BelongsToTheBrowserThatSignedIn) {
    Visitor ann(*container);
    ann.signIn();
    Visitor thief(*container);
    const Request guess =
        get("/servlet?p=security").cookie("JSESSIONID", *ann.cookie("JSESSIONID"));
    EXPECT_EQ(thief.send(guess).status, 303);
    EXPECT_EQ(thief.send(guess.cookie("signIn", std::string(32, '0'))).status, 303);
    thief.send(post("/servlet?p=login&q=logout").cookie("JSESSIONID", *ann.cookie("JSESSIONID")));
    EXPECT_EQ(ann.page("status").status, 200);
}

// In the frame of strangers, with a way on and nothing that only signed-in users see.
TEST_F(SignInPage, SaysThatItHasFailed) {
    beforeNextToken = [] { throw std::runtime_error("no random bytes"); };
    const Answer answer = Visitor(*container).page("login&q=loginForm");
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.title(), "Something went wrong");
    EXPECT_TRUE(answer.leadsTo(kSignInForm));
    EXPECT_TRUE(answer.leadsTo("/servlet?p=language&to=de&back=login"));
    EXPECT_FALSE(answer.leadsTo("/servlet?p=audio"));
    EXPECT_FALSE(answer.field("token"));
}

TEST_F(SignInPage, RedirectsSignedInUsers) {
    Visitor ann(*container);
    ann.signIn();
    EXPECT_EQ(ann.page("login&q=loginForm").location(), "/servlet?p=status");
    EXPECT_EQ(ann.page("login&q=loginForm&jumpto=audio").location(), "/servlet?p=audio");
}

TEST_F(SignInPage, StartsANewSessionWithANewTokenEachTime) {
    Visitor ann(*container);
    ann.signIn();
    const std::string formerToken = ann.token();
    const std::string formerCookie = *ann.cookie("JSESSIONID");
    ann.signIn();
    EXPECT_NE(ann.cookie("JSESSIONID"), formerCookie);
    EXPECT_NE(ann.token(), formerToken);
    const Answer old =
        Visitor(*container).send(get("/servlet?p=status").cookie("JSESSIONID", formerCookie));
    EXPECT_EQ(old.status, 303) << "the previous session has ended";
}

TEST_F(SignInPage, TiesTheSessionToTheClientAddress) {
    Visitor ann(*container);
    ann.signIn();
    const Answer elsewhere =
        Visitor(*container, "192.0.2.99")
            .send(get("/servlet?p=status").cookie("JSESSIONID", *ann.cookie("JSESSIONID")));
    EXPECT_EQ(elsewhere.status, 303);
}

TEST_F(SignInPage, EndsIdleSessions) {
    Visitor ann(*container);
    ann.signIn();
    advanceSeconds(599);
    EXPECT_EQ(ann.page("status").status, 200) << "each request restarts the idle time";
    advanceSeconds(599);
    EXPECT_EQ(ann.page("status").status, 200);
    advanceSeconds(601);
    EXPECT_EQ(ann.page("status").status, 303);
}

TEST_F(SignInPage, UsesTheIdleTimeFromTheSettings) {
    Visitor ann(*container);
    ann.signIn();
    ann.submit("security&q=access", {{"idleSeconds", "20"}, {"remoteAddresses", ""}});
    Visitor bob(*container, "192.0.2.8");
    bob.signIn();
    advanceSeconds(21);
    EXPECT_EQ(bob.page("status").status, 303);
}

TEST_F(SignOut, EndsTheSession) {
    EXPECT_EQ(me.submit("login&q=logout").location(), kSignInForm);
    EXPECT_EQ(me.page("status").status, 303);
}

TEST_F(SignOut, RequiresTheToken) {
    EXPECT_EQ(me.submitWithoutToken("login&q=logout").status, 403);
    EXPECT_EQ(me.page("login&q=logout").status, 403);
    EXPECT_EQ(me.page("login&q=logout&token=" + me.token()).status, 403);
    EXPECT_EQ(me.page("status").status, 200);
}

TEST_F(SignInPage, AcceptsASignOutWithoutASession) {
    EXPECT_EQ(Visitor(*container).submitWithoutToken("login&q=logout").location(), kSignInForm);
}

// The browser follows it without the cookies, and would remove those that the answer names.
TEST_F(SignInPage, RemovesNoCookieForALinkOfAnotherSite) {
    const Answer answer = Visitor(*container).page("login&q=logout");
    EXPECT_EQ(answer.location(), kSignInForm);
    EXPECT_EQ(answer.header("Set-Cookie").value_or("").find("signIn="), std::string::npos);
}

TEST_F(SignInPage, SignsOutOneSessionOnly) {
    Visitor ann(*container);
    Visitor bob(*container, "192.0.2.8");
    ann.signIn();
    bob.signIn();
    ann.submit("login&q=logout");
    EXPECT_EQ(bob.page("status").status, 200);
}

TEST_F(SignInPage, SetsTheSecurityHeaders) {
    Visitor ann(*container);
    ann.signIn();
    for (const char* id : {"login&q=loginForm&x", "status", "status-data", "contacts&q=export"}) {
        const Answer answer = ann.page(id);
        EXPECT_EQ(answer.header("Cache-Control"), "no-store") << id;
        if (answer.status == 200) {
            EXPECT_EQ(answer.header("X-Content-Type-Options"), "nosniff") << id;
            EXPECT_NE(answer.header("Content-Security-Policy")->find("frame-ancestors 'none'"),
                      std::string::npos)
                << id;
        }
    }
}

} // namespace
