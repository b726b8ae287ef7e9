#include "served.h"

#include "kit/sign_in.h"

#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

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
        } else if (action == "form") {
            response.text(kit::formToken(request, response));
        } else if (action == "sent") {
            response.text(kit::isFromForm(request) ? "own form" : "foreign");
        } else if (action == "others") {
            signIns.endOthers(request);
        } else if (const auto signIn = signIns.find(request)) {
            token = signIn->token;
            response.text(kit::isFromForm(request) ? "changed" : signIn->user);
        } else {
            response.text("not signed in");
        }
    }

    static bool isRight(kit::Request& request) {
        if (request.parameter("password") == "no memory") {
            throw std::bad_alloc();
        }
        return request.parameter("password") == "right";
    }

    void enter(kit::Request& request, kit::Response& response) {
        if (const long wait = signIns.secondsToWait(request)) {
            response.status(429).text(std::to_string(wait));
        } else if (!signIns.check(request, [&] { return isRight(request); })) {
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

TEST(SignIns, HideTheKeyFromScriptsAndEveryRequestOfOtherSites) {
    Door door;
    const auto key = door.signIn("right").cookie("signIn");
    ASSERT_TRUE(key);
    EXPECT_EQ(key->value.size(), 32u);
    EXPECT_EQ(key->value.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_TRUE(key->attribute("HttpOnly"));
    EXPECT_EQ(key->attribute("SameSite"), "Strict");
    EXPECT_EQ(key->attribute("Path"), "/");
    EXPECT_FALSE(key->attribute("Secure")) << "it would not be sent over HTTP";
    EXPECT_NE(door.signIn("right").cookie("signIn")->value, key->value);
}

TEST(SignIns, SetSecureCookiesOverHttps) {
    Door door;
    for (const char* name : {"JSESSIONID", "signIn"}) {
        const auto cookie = door.served.browser
                                .send(post("/servlet?p=door&q=in")
                                          .variable("HTTPS", "on")
                                          .form({{"password", "right"}}))
                                .cookie(name);
        ASSERT_TRUE(cookie) << name;
        EXPECT_TRUE(cookie->attribute("Secure")) << name;
    }
}

// The attack: the container makes session ids of addresses and a clock, so another client behind
// the same address can guess them.
TEST(SignIns, CannotBeTakenOverWithAGuessedSessionId) {
    Door door;
    const std::string key = door.signIn("right").cookie("signIn")->value;
    const std::string id = *door.served.browser.cookie("JSESSIONID");
    const Request guess = get("/servlet?p=door").cookie("JSESSIONID", id);
    EXPECT_EQ(door.served.runner.serve(guess).body, "not signed in");
    for (const std::string& wrong :
         {std::string(), std::string(32, '0'), key.substr(1), key + "0", id}) {
        EXPECT_EQ(door.served.runner.serve(guess.cookie("signIn", wrong)).body, "not signed in")
            << wrong;
    }
    EXPECT_EQ(door.served.runner.serve(guess.cookie("signIn", key)).body, "ann");
}

TEST(SignIns, CannotBeEndedWithAGuessedSessionId) {
    Door door;
    door.signIn("right");
    door.served.runner.serve(post("/servlet?p=door&q=out")
                                 .cookie("JSESSIONID", *door.served.browser.cookie("JSESSIONID")));
    advanceSeconds(6);
    EXPECT_EQ(door.look(), "ann");
}

TEST(SignIns, AreOverForTheRequestThatEndsThem) {
    Door door;
    const Response response =
        answerTo(post("/servlet?p=x"), [&](kit::Request& request, kit::Response& out) {
            EXPECT_TRUE(door.signIns.start(request, out, "ann"));
            EXPECT_TRUE(door.signIns.find(request)) << "before its cookies come back";
            door.signIns.end(request);
            EXPECT_FALSE(door.signIns.find(request));
        });
    EXPECT_EQ(response.cookies().size(), 2u);
}

TEST(SignInForm, IsToldFromThoseOfOtherSites) {
    Door door;
    Browser& browser = door.served.browser;
    const Response form = browser.send(get("/servlet?p=door&q=form"));
    const auto cookie = form.cookie("formToken");
    ASSERT_TRUE(cookie);
    EXPECT_EQ(cookie->value, form.body);
    EXPECT_TRUE(cookie->attribute("HttpOnly"));
    EXPECT_EQ(cookie->attribute("SameSite"), "Strict");

    const Request sent = post("/servlet?p=door&q=sent");
    EXPECT_EQ(browser.send(sent.form({{"token", form.body}})).body, "own form");
    EXPECT_EQ(browser.send(get("/servlet?p=door&q=sent&token=" + form.body)).body, "foreign");
    EXPECT_EQ(browser.send(sent).body, "foreign");
    for (const std::string& wrong : {std::string(), std::string(32, '0'), form.body + "0"}) {
        EXPECT_EQ(browser.send(sent.form({{"token", wrong}})).body, "foreign") << wrong;
    }
    Browser other(door.served.runner);
    EXPECT_EQ(other.send(sent.form({{"token", form.body}})).body, "foreign");
    EXPECT_EQ(other.send(sent.form({{"token", ""}})).body, "foreign");
}

TEST(SignInForm, KeepsItsTokenInEveryWindowOfABrowser) {
    Door door;
    Browser& browser = door.served.browser;
    const std::string first = browser.send(get("/servlet?p=door&q=form")).body;
    const Response second = browser.send(get("/servlet?p=door&q=form"));
    EXPECT_EQ(second.body, first);
    EXPECT_TRUE(second.cookies().empty());
    const Response repaired = door.served.runner.serve(
        get("/servlet?p=door&q=form").cookie("formToken", "what a browser should not have"));
    EXPECT_EQ(repaired.body.size(), 32u);
    EXPECT_TRUE(repaired.cookie("formToken"));
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

TEST(SignIns, LeaveNoFormerSessionBehind) {
    Door door;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(door.signIn("right").status, 303);
    }
    door.served.runner.sweep();
    EXPECT_EQ(door.served.runner.sessionCount(), 1);
    EXPECT_EQ(door.look(), "ann");
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
    EXPECT_NE(door.token, *door.served.browser.cookie("signIn")) << "pages show the token";
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

TEST(SignIns, DoNotCountAttemptsThatCouldNotBeChecked) {
    Door door;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(door.signIn("no memory").status, 500);
    }
    for (int i = 0; i < kit::AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(door.signIn("wrong").status, 403);
    }
    EXPECT_EQ(door.signIn("right").status, 429);
}

TEST(Tokens, HaveAsManyRandomBitsAsTheyCanHold) {
    const std::string digits = "0123456789abcdef";
    std::size_t ever[32] = {};
    std::size_t always[32] = {};
    std::fill(std::begin(always), std::end(always), 15);
    for (int i = 0; i < 100; ++i) {
        const std::string token = kit::randomToken();
        ASSERT_EQ(token.size(), 32u);
        for (std::size_t at = 0; at < token.size(); ++at) {
            ever[at] |= digits.find(token[at]);
            always[at] &= digits.find(token[at]);
        }
    }
    for (std::size_t at = 0; at < 32; ++at) {
        EXPECT_EQ(ever[at], 15u) << "a bit of digit " << at << " is never set";
        EXPECT_EQ(always[at], 0u) << "a bit of digit " << at << " is always set";
    }
}

TEST(Secrets, AreEqualOnlyIfAllCharactersAre) {
    EXPECT_TRUE(kit::equalSecrets("abc", "abc"));
    EXPECT_TRUE(kit::equalSecrets("", ""));
    for (const char* given : {"", "ab", "abd", "abcd", "Abc"}) {
        EXPECT_FALSE(kit::equalSecrets(given, "abc")) << given;
    }
    EXPECT_FALSE(kit::equalSecrets(std::string_view("abc\0", 4), "abc"));
}

// Prevents timing attacks: a comparison that ended at the first difference would not reach the page
// that must not be read.
TEST(SecretsDeathTest, AreComparedToTheEndWhateverTheFirstCharacterIs) {
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pages =
        mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char* const border = static_cast<char*>(pages) + pageSize;
    std::memcpy(border - 4, "wxyz", 4);
    ASSERT_EQ(mprotect(border, pageSize, PROT_NONE), 0);
    EXPECT_FALSE(kit::equalSecrets({border - 4, 4}, "abcd"));
    EXPECT_DEATH(EXPECT_FALSE(kit::equalSecrets({border - 4, 8}, "abcdefgh")), "");
    munmap(pages, 2 * pageSize);
}
