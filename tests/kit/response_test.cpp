#include "served.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

using namespace kit::testing;

namespace {

Response answer(const std::function<void(kit::Response&)>& respond) {
    return answerTo(get("/servlet?p=x"),
                    [&](kit::Request&, kit::Response& response) { respond(response); });
}

const char* const kPolicy = "default-src 'self'; base-uri 'none'; form-action 'self'; "
                            "frame-ancestors 'none'; object-src 'none'";

} // namespace

TEST(KitResponse, HasSafeDefaultHeaders) {
    const Response response = answer([](kit::Response& out) { out.text("hello"); });
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "hello");
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
    EXPECT_EQ(response.header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(response.header("Referrer-Policy"), "same-origin");
    EXPECT_EQ(response.header("Content-Security-Policy"), kPolicy);
    EXPECT_FALSE(response.header("Strict-Transport-Security")) << "it means nothing over HTTP";
}

TEST(KitResponse, KeepsBrowsersOnHttps) {
    for (const char* https : {"on", "1"}) {
        const Response response = answerTo(get("/servlet?p=x").variable("HTTPS", https),
                                           [](kit::Request& request, kit::Response& out) {
                                               EXPECT_TRUE(request.isHttps());
                                               EXPECT_TRUE(out.cookie({"a", "b"}));
                                               out.text("hello");
                                           });
        EXPECT_EQ(response.header("Strict-Transport-Security"), "max-age=31536000") << https;
        EXPECT_TRUE(response.cookie("a")->attribute("Secure")) << https;
    }
    answerTo(get("/servlet?p=x").variable("HTTPS", "off"),
             [](kit::Request& request, kit::Response&) { EXPECT_FALSE(request.isHttps()); });
}

TEST(KitResponse, SetsTheContentType) {
    EXPECT_EQ(answer([](kit::Response& out) { out.html("<p>"); }).header("Content-Type"),
              "text/html; charset=utf-8");
    EXPECT_EQ(answer([](kit::Response& out) {
                  out.json({{"a", 1}});
              }).header("Content-Type"),
              "application/json");
    EXPECT_EQ(answer([](kit::Response& out) { out.send("text/csv", "a"); }).header("Content-Type"),
              "text/csv");
}

TEST(KitResponse, SendsBytesUnchanged) {
    const std::string bytes("a\0%s\xFF", 5);
    EXPECT_EQ(answer([&](kit::Response& out) { out.send("image/x", bytes); }).body, bytes);
    EXPECT_EQ(answer([](kit::Response& out) { out.text(""); }).body, "");
    EXPECT_EQ(answer([](kit::Response& out) {
                  out.text("a");
                  out.text("b");
              }).body,
              "ab");
}

TEST(KitResponse, LetsAPageOverrideEveryDefault) {
    const Response response = answer([](kit::Response& out) {
        EXPECT_TRUE(out.header("Cache-Control", "max-age=60"));
        EXPECT_TRUE(out.header("Content-Type", "text/x"));
        out.text("a");
    });
    EXPECT_EQ(response.header("Cache-Control"), "max-age=60");
    EXPECT_EQ(response.header("Content-Type"), "text/x");
}

TEST(KitResponse, UsesTheLastStatus) {
    EXPECT_EQ(answer([](kit::Response& out) { out.status(403).status(404).text("no"); }).status,
              404);
}

TEST(KitResponse, RefusesHeaderInjection) {
    for (const std::string& value : {std::string("a\r\nSet-Cookie: b"), std::string("a\nb"),
                                     std::string("a\0b", 3), std::string("\x7F")}) {
        recorded_log::clear();
        const Response response = answer([&](kit::Response& out) {
            EXPECT_FALSE(out.header("X-Name", value));
            out.text("a");
        });
        EXPECT_EQ(response.header("X-Name"), std::nullopt);
        EXPECT_EQ(response.header("Set-Cookie"), std::nullopt);
        EXPECT_EQ(recorded_log::records(),
                  std::vector{recorded_log::webDebug(
                      "error", "Page x: refused header X-Name (control character or bad name)")});
    }
    for (const char* name : {"", "a b", "a:", "a\nb", "\xC3\xA9"}) {
        answer([&](kit::Response& out) { EXPECT_FALSE(out.header(name, "a")) << name; });
    }
    EXPECT_EQ(answer([](kit::Response& out) {
                  EXPECT_TRUE(out.header("X-Name", "a\tb \xC3\xA9"));
                  out.text("a");
              }).header("X-Name"),
              "a\tb \xC3\xA9");
}

TEST(KitResponse, LogsThePageAndWhatItRefused) {
    answerTo(get("/servlet?p=contacts"), [](kit::Request&, kit::Response& out) {
        out.text("a");
        recorded_log::clear();
        out.header("X Y", "a");
        out.cookie({"lang", "d e"});
        out.seeOther("http://elsewhere/");
        out.send("text/x\n", "body");
        out.download("a b", "text/csv", "body");
    });
    std::vector<LogRecord> expected;
    for (const char* refused : {
             "header X Y (control character or bad name)",
             "cookie lang (bad character or attributes, or too many)",
             "redirect to http://elsewhere/ (no path on this device, or control character)",
             "content type text/x\n (control character)",
             "download a b (bad file name or content type)",
         }) {
        expected.push_back(
            recorded_log::webDebug("error", std::string("Page contacts: refused ") + refused));
    }
    EXPECT_EQ(recorded_log::records(), expected);
}

TEST(KitResponse, RefusesHeaderInjectionByAContentType) {
    const Response response =
        answer([](kit::Response& out) { out.send("text/x\r\nSet-Cookie: a=b", "body"); });
    EXPECT_EQ(response.header("Content-Type"), std::nullopt);
    EXPECT_EQ(response.header("Set-Cookie"), std::nullopt);
    EXPECT_EQ(response.body, "");
}

TEST(KitResponse, RedirectsTheBrowser) {
    const Response response =
        answer([](kit::Response& out) { EXPECT_TRUE(out.seeOther("/servlet?p=status")); });
    EXPECT_EQ(response.status, 303);
    EXPECT_EQ(response.header("Location"), "/servlet?p=status");
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
}

TEST(KitResponse, RefusesRedirectsToOtherHosts) {
    const std::string kWrong[] = {"",         "status",     "//elsewhere",         "/\\elsewhere",
                                  "http://e", "/a\r\nX: b", std::string("/\0", 2), "/a\tb"};
    for (const std::string& path : kWrong) {
        const Response response = answer([&](kit::Response& out) {
            EXPECT_FALSE(out.seeOther(path)) << path;
            out.text("stays");
        });
        EXPECT_EQ(response.status, 200) << path;
        EXPECT_EQ(response.header("Location"), std::nullopt) << path;
    }
    answer([](kit::Response& out) { EXPECT_TRUE(out.seeOther("/")); });
}

TEST(KitResponse, SetsACookieWithItsAttributes) {
    const auto cookieSet = [](const kit::Cookie& cookie) {
        return answer([&](kit::Response& out) {
                   EXPECT_TRUE(out.cookie(cookie));
                   out.text("a");
               })
            .header("Set-Cookie");
    };
    kit::Cookie cookie{"lang", "de"};
    EXPECT_EQ(cookieSet(cookie), "lang=de; Path=/; HttpOnly; SameSite=Lax");
    cookie.path = "/servlet";
    cookie.maxAge = 60;
    cookie.httpOnly = false;
    cookie.secure = true;
    cookie.sameSite = kit::Cookie::SameSite::Strict;
    EXPECT_EQ(cookieSet(cookie), "lang=de; Path=/servlet; Max-Age=60; Secure; SameSite=Strict");
    cookie.domain = "phone.example";
    cookie.expires = 784111777;
    EXPECT_EQ(cookieSet(cookie), "lang=de; Path=/servlet; Max-Age=60; Expires=Sun, 06 Nov 1994 "
                                 "08:49:37 GMT; Domain=phone.example; Secure; SameSite=Strict");
    cookie.sameSite = kit::Cookie::SameSite::None;
    cookie.domain = "";
    cookie.expires.reset();
    EXPECT_EQ(cookieSet(cookie), "lang=de; Path=/servlet; Max-Age=60; Secure; SameSite=None");
    cookie.sameSite = kit::Cookie::SameSite::Strict;
    cookie.value = "";
    cookie.maxAge = 0;
    EXPECT_EQ(cookieSet(cookie), "lang=; Path=/servlet; Max-Age=0; Secure; SameSite=Strict");
}

TEST(KitResponse, RefusesACookieWithBadCharacters) {
    const kit::Cookie kWrong[] = {
        {"", "a"},
        {"a b", "c"},
        {"a=", "c"},
        {"a", "b c"},
        {"a", "b;c"},
        {"a", "b,c"},
        {"a", "\"b\""},
        {"a", "b\\"},
        {"a", "b\r\n"},
        {"a", "\xC3\xA9"},
        {"a", "b", "/;x"},
        {"a", "b", "/\r\n"},
        {"a", std::string("b\0", 2)},
        {"a", "b", "/", {}, true, false, kit::Cookie::SameSite::Lax, "phone;x"},
        {"a", "b", "/", {}, true, false, kit::Cookie::SameSite::Lax, "phone\r\n"},
    };
    for (const kit::Cookie& cookie : kWrong) {
        const Response response = answer([&](kit::Response& out) {
            EXPECT_FALSE(out.cookie(cookie)) << cookie.name << "=" << cookie.value;
            out.text("a");
        });
        EXPECT_EQ(response.header("Set-Cookie"), std::nullopt);
    }
}

// RFC 6265bis, section 5.7: browsers ignore such cookies, so a page that sets one has a mistake.
TEST(KitResponse, RefusesACookieThatBrowsersReject) {
    kit::Cookie cookie{"a", "b"};
    cookie.sameSite = kit::Cookie::SameSite::None;
    EXPECT_FALSE(kit::setCookieText(cookie)) << "not secure";
    cookie = {"__Secure-a", "b"};
    EXPECT_FALSE(kit::setCookieText(cookie));
    cookie.secure = true;
    EXPECT_TRUE(kit::setCookieText(cookie));
    cookie.name = "__host-a";
    EXPECT_TRUE(kit::setCookieText(cookie));
    cookie.path = "/servlet";
    EXPECT_FALSE(kit::setCookieText(cookie));
    cookie.path = "/";
    cookie.domain = "phone.example";
    EXPECT_FALSE(kit::setCookieText(cookie));
    if constexpr (sizeof(std::time_t) == 8) { // 32 bits reach from 1901 to 2038
        cookie = {"a", "b"};
        cookie.expires = -62135596801; // in the year 0
        EXPECT_FALSE(kit::setCookieText(cookie));
    }
}

TEST(KitResponse, SetsSeveralCookies) {
    const Response response = answer([](kit::Response& out) {
        EXPECT_TRUE(out.cookie({"a", "1"}));
        EXPECT_TRUE(out.cookie({"b", "2"}));
        EXPECT_TRUE(out.cookie({"a", "3"})) << "another value";
        out.text("a");
    });
    ASSERT_EQ(response.cookies().size(), 2u);
    EXPECT_EQ(response.cookie("a")->value, "3");
    EXPECT_EQ(response.cookie("b")->value, "2");
}

TEST(KitResponse, SetsTwentyCookiesAndNoMoreBesideTheSessions) {
    const Response response =
        answerTo(get("/servlet?p=x"), [](kit::Request& request, kit::Response& out) {
            for (int number = 0; number < 20; ++number) {
                EXPECT_TRUE(out.cookie({"c" + std::to_string(number), "1"})) << number;
            }
            EXPECT_FALSE(out.cookie({"one-more", "1"}));
            EXPECT_TRUE(out.cookie({"c0", "2"})) << "in the place of another";
            request.raw().getSession(true);
            out.text("a");
        });
    EXPECT_EQ(response.cookies().size(), 21u);
    EXPECT_TRUE(response.cookie("JSESSIONID"));
    EXPECT_FALSE(response.cookie("one-more"));
    EXPECT_EQ(response.cookie("c0")->value, "2");
}

TEST(KitResponse, KeepsTheCookiesOfListenersAndOfTheSession) {
    const Response response =
        answerTo(get("/servlet?p=x"), [](kit::Request& request, kit::Response& out) {
            EXPECT_TRUE(kit::Response(out.raw(), request).cookie({"listener", "1"}));
            EXPECT_TRUE(out.cookie({"before", "1"}));
            request.raw().getSession(true);
            EXPECT_TRUE(out.cookie({"after", "1"}));
            out.text("a");
        });
    EXPECT_EQ(response.cookies().size(), 4u);
    for (const char* name : {"listener", "before", "JSESSIONID", "after"}) {
        EXPECT_TRUE(response.cookie(name)) << name;
    }
    EXPECT_EQ(response.cookie("JSESSIONID")->attributes.size(), 0u) << "the container's own";
}

TEST(KitResponse, OffersAFileForDownload) {
    const Response response = answer(
        [](kit::Response& out) { EXPECT_TRUE(out.download("a-1_b.csv", "text/csv", "x,y")); });
    EXPECT_EQ(response.header("Content-Disposition"), "attachment; filename=a-1_b.csv");
    EXPECT_EQ(response.header("Content-Type"), "text/csv");
    EXPECT_EQ(response.body, "x,y");
    for (const char* name : {"", "a b", "a\"b", "a;b", "../a/b", "\xC3\xA9"}) {
        answer([&](kit::Response& out) { EXPECT_FALSE(out.download(name, "a/b", "")) << name; });
    }
    EXPECT_EQ(answer([](kit::Response& out) {
                  EXPECT_FALSE(out.download("a", "a/b\r\nX: y", ""));
              }).header("Content-Disposition"),
              std::nullopt);
}

TEST(KitResponse, ShowsATemplateOfTheDocumentRoot) {
    const Request request = get("/servlet?p=x").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
    const Response response = answerTo(request, [](kit::Request&, kit::Response& out) {
        out.show("page.html", kit::Variables().set("name", "<you>"));
    });
    EXPECT_EQ(response.body, "Hello, &lt;you&gt;!\n");
    EXPECT_EQ(response.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(response.header("Content-Security-Policy"), kPolicy);
}

TEST(KitResponse, SendsTheErrorPageInsteadOfATemplate) {
    const Request request = get("/servlet?p=x").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
    const Response response = answerTo(request, [](kit::Request&, kit::Response& out) {
        out.show("page.html", kit::Variables().set("name", "you"));
        throw std::runtime_error("late");
    });
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "The page failed; the device's log says why.\n");
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
}

TEST(KitResponse, FailsIfATemplateCannotBeOpened) {
    recorded_log::clear();
    const Request request = get("/servlet?p=x").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
    const Response response = answerTo(request, [](kit::Request&, kit::Response& out) {
        out.show("page.html", kit::Variables().set("name", "earlier"));
        out.show("none.html", kit::Variables().set("name", "x"));
    });
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "The page failed; the device's log says why.\n");
    const auto records = recorded_log::records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0], recorded_log::webDebug(
                              "error", "Page x: cannot open the template " KIT_TEST_DOCUMENT_ROOT
                                       "/WEB-INFO/templates/none.html: No such file or "
                                       "directory"));
}

TEST(KitResponse, ShowsTheLastOfTwoTemplates) {
    const Request request = get("/servlet?p=x").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
    const Response response = answerTo(request, [](kit::Request&, kit::Response& out) {
        out.show("other.html", kit::Variables().set("name", "first"));
        out.show("page.html", kit::Variables().set("name", "second"));
    });
    EXPECT_EQ(response.body, "Hello, second!\n");
}

TEST(KitResponse, SendsAPlainErrorPage) {
    const Response response = answer([](kit::Response& out) { out.fail(); });
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "The page failed; the device's log says why.\n");
    const Response late = answer([](kit::Response& out) {
        out.text("begun");
        out.raw().print("%s", "sent");
        out.fail();
    });
    EXPECT_EQ(late.status, 200);
    EXPECT_EQ(late.body, "begunsent");
}

TEST(KitResponse, IsNotSentAgainToABrowserThatHasIt) {
    const auto page = [](kit::Request&, kit::Response& out) {
        if (!out.notModified("v1")) {
            out.text("new");
        }
    };
    const Response first = answerTo(get("/servlet?p=x"), page);
    EXPECT_EQ(first.body, "new");
    EXPECT_EQ(first.header("ETag"), "W/\"v1\"");
    EXPECT_EQ(first.header("Cache-Control"), "private, no-cache");
    const Response again = answerTo(get("/servlet?p=x").header("If-None-Match", "W/\"v1\""), page);
    EXPECT_EQ(again.status, 304);
    EXPECT_EQ(again.body, "");
    EXPECT_EQ(again.header("ETag"), "W/\"v1\"");
    EXPECT_EQ(again.header("Content-Type"), std::nullopt);
    EXPECT_EQ(answerTo(get("/servlet?p=x").header("If-None-Match", "W/\"v0\""), page).body, "new");
    EXPECT_EQ(answerTo(get("/servlet?p=x").header("If-Match", "\"v1\""), page).status, 412);
    const Response posted =
        answerTo(post("/servlet?p=x").header("If-None-Match", "W/\"v1\""), page);
    EXPECT_EQ(posted.body, "new");
    EXPECT_EQ(posted.header("Cache-Control"), "no-store");
}

TEST(KitResponse, RefusesAVersionWithBadCharacters) {
    for (const std::string version : {"a b", "a\"b", "a\r\nb", "\xC3\xA9"}) {
        recorded_log::clear();
        const Response response = answer([&](kit::Response& out) {
            EXPECT_FALSE(out.notModified(version));
            out.text("a");
        });
        EXPECT_EQ(response.header("ETag"), std::nullopt) << version;
        EXPECT_EQ(recorded_log::records(),
                  std::vector{recorded_log::webDebug("error", "Page x: refused version " + version +
                                                                  " (bad character)")});
    }
}
