// The test kit's Browser: its address and its cookies.
#include <kit/testing/browser.h>

#include "pages.h"

#include <HttpSession.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

namespace {

using namespace kit::testing;

// Sets the cookie in the parameter "set", and shows the request's address and cookies.
Page mirror([](HttpRequest* request, HttpResponse* response) {
    if (const char* cookie = request->getParameter("set"))
        response->setHeader("Set-Cookie", cookie);
    const char* cookies = request->getCookie();
    response->print("%s %s", request->getRemoteAddr(), cookies != nullptr ? cookies : "(none)");
});

class Browsers : public testing::Test {
protected:
    std::string visit(Browser& browser) { return browser.send(get("/")).body; }
    void set(const std::string& cookie) { browser.send(post("/").form({{"set", cookie}})); }

    ServletRunner runner{mirror};
    Browser browser{runner};
};

TEST_F(Browsers, SendTheCookiesThatWereSet) {
    EXPECT_EQ(visit(browser), "192.0.2.7 (none)");
    set("lang=de; Path=/");
    set("size=2");
    EXPECT_EQ(visit(browser), "192.0.2.7 lang=de; size=2");
    EXPECT_EQ(browser.cookie("lang"), "de");
    EXPECT_EQ(browser.cookie("other"), std::nullopt);
}

TEST_F(Browsers, SendTheNewestValueOfACookie) {
    set("lang=de");
    set("lang=fr");
    EXPECT_EQ(visit(browser), "192.0.2.7 lang=fr");
}

TEST_F(Browsers, HaveTheirOwnAddressAndCookies) {
    Browser other(runner, "192.0.2.99");
    set("lang=de");
    EXPECT_EQ(visit(other), "192.0.2.99 (none)");
    EXPECT_EQ(visit(browser), "192.0.2.7 lang=de");
}

TEST_F(Browsers, SendTheirCookiesAfterThoseOfTheRequest) {
    set("lang=de");
    EXPECT_EQ(browser.send(get("/").cookie("lang", "fr")).body, "192.0.2.7 lang=fr; lang=de");
    EXPECT_EQ(browser.cookie("lang"), "de");
}

TEST_F(Browsers, DeleteAnExpiredCookie) {
    const struct {
        const char* attributes;
        bool kept;
    } rows[] = {
        {"Max-Age=0", false},
        {"Max-Age=-1", false},
        {"Max-Age=000", false},
        {"Max-Age=1", true},
        {"Max-Age=", true},
        {"Max-Age=-", true},
        {"Max-Age=0x", true},
        {"Expires=Thu, 01 Jan 1970 00:00:00 GMT", false},
        {"expires=Wed, 21-Oct-2015 07:28:00 GMT", false},
        {"Expires=Fri, 31 Dec 9999 23:59:59 GMT", true},
        {"Expires=yesterday", true},
        {"Expires=", true},
        {"Max-Age=60; Expires=Thu, 01 Jan 1970 00:00:00 GMT", true},
        {"Max-Age=0; Expires=Fri, 31 Dec 9999 23:59:59 GMT", false},
        {"Max-Age=soon; Expires=Thu, 01 Jan 1970 00:00:00 GMT", false},
    };
    for (const auto& row : rows) {
        set("lang=de");
        set(std::string("lang=fr; ") + row.attributes);
        EXPECT_EQ(browser.cookie("lang"),
                  row.kept ? std::optional<std::string>("fr") : std::nullopt)
            << row.attributes;
    }
}

TEST_F(Browsers, KeepOtherCookiesWhenOneExpires) {
    set("size=2");
    set("lang=de; Max-Age=0");
    EXPECT_EQ(visit(browser), "192.0.2.7 size=2");
}

// The container writes all cookies of a response into one header, of which a browser reads the
// first cookie only: a page that adds a cookie beside the session's loses the session.
TEST_F(Browsers, ShowThatASecondCookieCostsThePageItsSession) {
    Page page([](HttpRequest* request, HttpResponse* response) {
        request->getSession(true);
        response->addCookie("lang", "de");
    });
    ServletRunner greedy(page);
    Browser visitor(greedy);
    visitor.send(get("/"));
    visitor.send(get("/"));
    EXPECT_EQ(greedy.sessionCount(), 2);
    EXPECT_EQ(visitor.cookie("lang"), std::nullopt);
}

} // namespace
