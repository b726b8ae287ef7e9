// Attacks by other web sites, as they arrive: DNS rebinding, cross-site requests.
#include "served.h"

#include "kit/origin.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

using namespace kit::testing;

namespace {

Response served(const Request& request) {
    return answerTo(request, [](kit::Request&, kit::Response& response) { response.text("page"); });
}

// Returns whether a page and a listener answer the request; both must do the same.
bool isServed(const Request& request) {
    const Response answer = served(request);
    static HttpListener* const listener = kit::newListener(
        std::make_unique<FunctionListener>([](kit::Request&, kit::Response&) { return true; }));
    EXPECT_EQ(ListenerRunner(*listener).serve(request).passed, answer.body == "page");
    return answer.body == "page";
}

const Request kPage = get("/servlet?p=x");
const Request kForm = post("/servlet?p=x").form({{"a", "b"}});

std::string systemName() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

struct FurtherName {
    explicit FurtherName(std::string name) {
        kit::HostNames::accept([name](const std::string& asked) { return asked == name; });
    }
    ~FurtherName() { kit::HostNames::accept(nullptr); }
};

} // namespace

TEST(HostName, IsReadFromAnAuthority) {
    const std::pair<const char*, const char*> cases[] = {{"phone", "phone"},
                                                         {"PHONE:8080", "phone"},
                                                         {"phone.example.", "phone.example"},
                                                         {"192.0.2.1:80", "192.0.2.1"},
                                                         {"[2001:DB8::1]:80", "2001:db8::1"},
                                                         {"[::1]", "::1"},
                                                         {"", ""},
                                                         {"[::1", ""},
                                                         {":80", ""}};
    for (const auto& [authority, name] : cases) {
        EXPECT_EQ(kit::hostName(authority), name) << authority;
    }
}

TEST(HostNames, AreTheAddressesAndTheSystemsName) {
    for (const std::string& host :
         {std::string("192.0.2.1"), std::string("192.0.2.1:8080"), std::string("[2001:db8::1]:80"),
          std::string("localhost:8080"), std::string("LOCALHOST."), systemName(),
          systemName() + ".local:80"}) {
        EXPECT_TRUE(isServed(kPage.header("Host", host))) << host;
    }
    EXPECT_TRUE(isServed(kPage.without("HTTP_HOST"))) << "no browser";
}

// The attack: the browser opens http://attacker.example/, which then leads to the device.
TEST(HostNames, RefuseThoseOfOthers) {
    for (const char* host :
         {"attacker.example", "attacker.example:80", "192.0.2.1.attacker.example",
          "localhost.attacker.example", "192.0.2", "[attacker.example]", ""}) {
        recorded_log::clear();
        EXPECT_FALSE(isServed(kPage.header("Host", host))) << host;
        EXPECT_EQ(served(kPage.header("Host", host)).status, 421) << host;
        ASSERT_FALSE(recorded_log::records().empty());
        EXPECT_EQ(
            recorded_log::records()[0],
            recorded_log::webDebug("warn", std::string("Page x: refused a request for the unknown "
                                                       "host name ") +
                                               host));
    }
}

TEST(OtherSites, AreLoggedWithThePageOrEventThatTheyAskFor) {
    for (const auto& [uri, subject] :
         {std::pair("/servlet?p=x", "Page x"), std::pair("/servlet?key=OK", "Event key")}) {
        recorded_log::clear();
        EXPECT_EQ(
            served(
                get(uri).header("Sec-Fetch-Site", "cross-site").header("Sec-Fetch-Mode", "no-cors"))
                .status,
            403);
        EXPECT_EQ(recorded_log::records(),
                  std::vector{recorded_log::webDebug(
                      "warn", std::string(subject) + ": refused a request that another site "
                                                     "caused")});
    }
}

TEST(HostNames, IncludeThoseOfThePlugIn) {
    const FurtherName name("phone.example");
    EXPECT_TRUE(isServed(kPage.header("Host", "Phone.Example:80")));
    EXPECT_FALSE(isServed(kPage.header("Host", "other.example")));
}

TEST(OtherSites, MayLinkToPages) {
    const Request link = kPage.header("Sec-Fetch-Site", "cross-site");
    EXPECT_TRUE(
        isServed(link.header("Sec-Fetch-Mode", "navigate").header("Sec-Fetch-Dest", "document")));
    EXPECT_TRUE(isServed(kPage.header("Referer", "http://attacker.example/")))
        << "browsers without Fetch Metadata";
}

TEST(OtherSites, CannotCauseOtherRequests) {
    for (const char* site : {"cross-site", "same-site", "unheard-of"}) {
        const Request caused = kPage.header("Sec-Fetch-Site", site);
        EXPECT_FALSE(isServed(caused.header("Sec-Fetch-Mode", "no-cors"))) << site;
        EXPECT_FALSE(isServed(caused.header("Sec-Fetch-Mode", "cors"))) << site;
        EXPECT_FALSE(isServed(
            caused.header("Sec-Fetch-Mode", "navigate").header("Sec-Fetch-Dest", "iframe")))
            << site;
        EXPECT_EQ(served(kForm.header("Sec-Fetch-Site", site)).status, 403) << site;
        EXPECT_FALSE(
            isServed(kForm.header("Sec-Fetch-Site", site).header("Sec-Fetch-Mode", "navigate")))
            << site;
    }
    for (const char* origin : {"http://attacker.example", "null", "", "http://192.0.2.1:81",
                               "http://192.0.2.1.attacker.example"}) {
        EXPECT_FALSE(isServed(kForm.header("Origin", origin))) << origin;
    }
    EXPECT_FALSE(isServed(kForm.header("Referer", "http://attacker.example/192.0.2.1/")));
    EXPECT_FALSE(isServed(
        kForm.header("Origin", "http://192.0.2.1").header("Sec-Fetch-Site", "cross-site")));
}

TEST(OtherSites, CannotCauseEvents) {
    for (const char* event : {"/servlet?number=900123", "/servlet?key=OK", "/servlet?csta=x"}) {
        const Request caused = get(event).header("Sec-Fetch-Site", "cross-site");
        EXPECT_FALSE(isServed(caused)) << event;
        EXPECT_FALSE(isServed(caused.header("Sec-Fetch-Mode", "navigate"))) << event;
        EXPECT_FALSE(isServed(get(event).header("Referer", "http://attacker.example/"))) << event;
        EXPECT_TRUE(isServed(get(event))) << "a program's event";
    }
}

TEST(OwnPages, AreServed) {
    for (const char* site : {"same-origin", "none"}) {
        EXPECT_TRUE(isServed(kForm.header("Sec-Fetch-Site", site))) << site;
    }
    const Request form = kForm.header("Host", "192.0.2.1:8080");
    EXPECT_TRUE(isServed(form.header("Origin", "http://192.0.2.1:8080")));
    EXPECT_TRUE(isServed(form.header("Origin", "https://192.0.2.1:8080"))) << "behind a TLS proxy";
    EXPECT_TRUE(isServed(form.header("Referer", "http://192.0.2.1:8080/servlet?p=x")));
    EXPECT_TRUE(isServed(form)) << "no browser";
}
