#include "served.h"

#include "kit/sign_in.h"

#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

using namespace kit::testing;
using kit::testing::test_clock::advanceSeconds;

namespace {

// A page behind a sign-in, whose password is "right".
class Door {
public:
    kit::SignIns signIns;
    std::string token; // of the sign-in that a request showed last
    Served served{
        [this](kit::Request& request, kit::Response& response) { answer(request, response); }};

    Response signIn(Browser& browser, const std::string& password) {
        return browser.send(
            post("/servlet?p=door&q=in").form({{"user", "ann"}, {"password", password}}));
    }
    Response signIn(const std::string& password) { return signIn(served.browser, password); }
    std::string look(Browser& browser) { return browser.send(get("/servlet?p=door")).body; }
    std::string look() { return look(served.browser); }

private:
    void answer(kit::Request& request, kit::Response& response) {
        const auto action = request.parameter("q");
        if (action == "in") {
            enter(request, response);
        } else if (action == "out") {
            signIns.end(request);
            advanceSeconds(request.number<int>("takes", 0, 60).valueOr(0));
        } else if (action == "others") {
            signIns.endOthers(request);
        } else if (const auto signIn = signIns.find(request)) {
            token = signIn->token;
            response.text(kit::SignIns::mayChange(request, *signIn) ? "changed" : signIn->user);
        } else {
            response.text("not signed in");
        }
    }

    void enter(kit::Request& request, kit::Response& response) {
        if (const long wait = signIns.secondsToWait(request)) {
            response.status(429).text(std::to_string(wait));
        } else if (request.parameter("password") != "right") {
            response.status(403).text("wrong");
        } else if (signIns.start(request, response, "ann")) {
            response.seeOther("/servlet?p=door");
        }
    }
};

} // namespace

TEST(SignIns, RecordWhoIsSignedIn) {
    Door door;
    EXPECT_EQ(door.look(), "not signed in");
    EXPECT_EQ(door.signIn("wrong").status, 403);
    EXPECT_EQ(door.look(), "not signed in");
    EXPECT_EQ(door.signIn("right").status, 303);
    EXPECT_EQ(door.look(), "ann");
    Browser other(door.served.runner);
    EXPECT_EQ(door.look(other), "not signed in");
}

TEST(SignIns, HideTheSessionsCookieFromScriptsAndOtherSites) {
    Door door;
    const auto cookie = door.signIn("right").cookie("JSESSIONID");
    ASSERT_TRUE(cookie);
    EXPECT_EQ(cookie->value, *door.served.browser.cookie("JSESSIONID"));
    EXPECT_TRUE(cookie->attribute("HttpOnly"));
    EXPECT_EQ(cookie->attribute("SameSite"), "Lax");
    EXPECT_EQ(cookie->attribute("Path"), "/");
}

TEST(SignIns, CreateANewSessionAgainstSessionFixation) {
    Door door;
    door.signIn("right");
    const std::string before = *door.served.browser.cookie("JSESSIONID");
    door.signIn("right");
    const std::string after = *door.served.browser.cookie("JSESSIONID");
    EXPECT_NE(before, after);
    EXPECT_EQ(door.look(), "ann");
    const Response stolen =
        door.served.runner.serve(get("/servlet?p=door").cookie("JSESSIONID", before));
    EXPECT_EQ(stolen.body, "not signed in");
}

TEST(SignIns, EndWhenTheUserSignsOut) {
    Door door;
    door.signIn("right");
    const std::string id = *door.served.browser.cookie("JSESSIONID");
    door.served.browser.send(post("/servlet?p=door&q=out"));
    EXPECT_EQ(door.look(), "not signed in");
    advanceSeconds(5);
    door.served.runner.sweep();
    EXPECT_EQ(door.served.runner.sessionCount(), 0) << "the session has ended, too";
}

TEST(SignIns, FreeTheSessionAfterASignOutThatTookSeconds) {
    Door door;
    door.signIn("right");
    door.served.browser.send(get("/servlet?p=door&q=out&takes=3"));
    advanceSeconds(60);
    door.served.runner.sweep();
    EXPECT_EQ(door.served.runner.sessionCount(), 0);
}

TEST(SignIns, IgnoreASignOutWithoutASignIn) {
    Door door;
    door.served.browser.send(post("/servlet?p=door&q=out"));
    EXPECT_EQ(door.look(), "not signed in");
}

TEST(SignIns, EndWithTheSession) {
    Door door;
    door.signIn("right");
    advanceSeconds(181);
    EXPECT_EQ(door.look(), "not signed in");
}

TEST(SignIns, EndForAllOtherSessions) {
    Door door;
    Browser other(door.served.runner);
    door.signIn("right");
    door.signIn(other, "right");
    other.send(post("/servlet?p=door&q=others"));
    EXPECT_EQ(door.look(), "not signed in");
    EXPECT_EQ(door.look(other), "ann");
}

TEST(SignIns, GiveEachSignInItsOwnToken) {
    Door door;
    door.signIn("right");
    door.look();
    const std::string first = door.token;
    EXPECT_EQ(first.size(), 32u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos);
    door.signIn("right");
    door.look();
    EXPECT_NE(door.token, first);
}

TEST(SignIns, RequireTheCsrfTokenForEveryChange) {
    Door door;
    Browser other(door.served.runner);
    door.signIn(other, "right");
    door.look(other);
    const std::string foreign = door.token;
    Browser& browser = door.served.browser;
    door.signIn("right");
    door.look();
    const std::string token = door.token;

    const std::string page = "/servlet?p=door";
    EXPECT_EQ(browser.send(post(page).form({{"token", token}})).body, "changed");
    EXPECT_EQ(browser.send(post(page + "&token=" + token)).body, "changed");

    EXPECT_EQ(browser.send(get(page + "&token=" + token)).body, "ann") << "not by GET";
    EXPECT_EQ(browser.send(post(page)).body, "ann");
    for (const std::string& wrong :
         {foreign, std::string(), token.substr(1), token + "0", std::string(32, '0')}) {
        EXPECT_EQ(browser.send(post(page).form({{"token", wrong}})).body, "ann") << wrong;
    }
}

TEST(SignIns, LimitTheRateOfPasswordAttempts) {
    Door door;
    for (int i = 0; i < kit::AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(door.signIn("wrong").status, 403);
    }
    const Response refused = door.signIn("right");
    EXPECT_EQ(refused.status, 429) << "the right password is not checked";
    EXPECT_EQ(refused.body, std::to_string(kit::AttemptLimit::kFirstWait));
    Browser elsewhere(door.served.runner, "198.51.100.4");
    EXPECT_EQ(door.signIn(elsewhere, "right").status, 303);
    advanceSeconds(kit::AttemptLimit::kFirstWait);
    EXPECT_EQ(door.signIn("right").status, 303);
    EXPECT_EQ(door.signIn("right").status, 303)
        << "after a success the address has its free attempts again";
}

TEST(Secrets, AreEqualOnlyIfAllCharactersAre) {
    EXPECT_TRUE(kit::equalSecrets("abc", "abc"));
    EXPECT_TRUE(kit::equalSecrets("", ""));
    for (const char* given : {"", "ab", "abd", "abcd", "Abc"}) {
        EXPECT_FALSE(kit::equalSecrets(given, "abc")) << given;
    }
    EXPECT_FALSE(kit::equalSecrets(std::string_view("abc\0", 4), "abc"));
}
