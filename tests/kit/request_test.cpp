#include "served.h"

#include <gtest/gtest.h>

using namespace kit::testing;

namespace {

// Calls `look` with the request that a page receives.
void lookAt(const Request& request, const std::function<void(kit::Request&)>& look) {
    bool looked = false;
    answerTo(request, [&](kit::Request& seen, kit::Response&) {
        look(seen);
        looked = true;
    });
    EXPECT_TRUE(looked);
}

} // namespace

TEST(KitRequest, DistinguishesAbsentFromEmpty) {
    lookAt(get("/servlet?p=x&empty=&full=a%26b"), [](kit::Request& request) {
        EXPECT_EQ(request.parameter("absent"), std::nullopt);
        EXPECT_EQ(request.parameter("empty"), "");
        EXPECT_EQ(request.parameter("full"), "a&b");
        EXPECT_EQ(request.page(), "x");
    });
}

TEST(KitRequest, ReturnsAllValuesOfAName) {
    lookAt(get("/servlet?p=x&a=1&b=2&a=3"), [](kit::Request& request) {
        EXPECT_EQ(request.parameters("a"), (std::vector<std::string_view>{"1", "3"}));
        EXPECT_TRUE(request.parameters("c").empty());
    });
}

TEST(KitRequest, ReadsTypedValues) {
    lookAt(get("/servlet?p=x&port=70000&name=abc&way=up&on=1"), [](kit::Request& request) {
        EXPECT_EQ(request.number<int>("port", 1, 65535).problem(), kit::Problem::TooLarge);
        EXPECT_EQ(*request.number<int>("port", 1, 99999), 70000);
        EXPECT_EQ(request.number<int>("none", 1, 9).problem(), kit::Problem::Missing);
        EXPECT_EQ(*request.text("name", 1, 3), "abc");
        EXPECT_EQ(request.text("name", 1, 2).problem(), kit::Problem::TooLong);
        EXPECT_EQ(*request.choice("way", {"up", "down"}), "up");
        EXPECT_TRUE(request.isChecked("on"));
        EXPECT_FALSE(request.isChecked("off"));
    });
}

TEST(KitRequest, ReadsTheFormBeforeTheQuery) {
    lookAt(post("/servlet?p=x&name=query").form({{"name", "form"}}), [](kit::Request& request) {
        EXPECT_EQ(request.parameter("name"), "form");
        EXPECT_TRUE(request.isPost());
    });
    lookAt(get("/servlet?p=x"), [](kit::Request& request) { EXPECT_FALSE(request.isPost()); });
}

TEST(KitRequest, DiscardsWhatIsLeftOfABody) {
    const std::string body(10000, 'x');
    lookAt(post("/servlet?p=x").body(body, "application/octet-stream"), [](kit::Request& request) {
        char byte = 0;
        EXPECT_EQ(request.raw().receiveBlockData(&byte, 1), 1);
        request.discardBody();
        EXPECT_EQ(request.raw().receiveBlockData(&byte, 1), 0);
        request.discardBody();
    });
}

TEST(KitRequest, ReadsCookies) {
    lookAt(get("/servlet?p=x").cookie("lang", "de").cookie("other", "a%20b"),
           [](kit::Request& request) {
               EXPECT_EQ(request.cookie("lang"), "de");
               EXPECT_EQ(request.cookie("other"), "a b");
               EXPECT_EQ(request.cookie("Lang"), std::nullopt);
           });
    lookAt(get("/servlet?p=x"),
           [](kit::Request& request) { EXPECT_EQ(request.cookie("lang"), std::nullopt); });
}

TEST(KitRequest, ReturnsTheClientsAddress) {
    lookAt(get("/servlet?p=x").from("198.51.100.4"), [](kit::Request& request) {
        EXPECT_EQ(request.remoteAddress(), kClientAddress) << "the browser sets its own address";
        EXPECT_EQ(request.session(), nullptr);
    });
}

TEST(KitRequest, HasAnEmptyAddressIfTheFrontServerSendsNone) {
    FunctionPage page([](kit::Request& request, kit::Response&) {
        EXPECT_EQ(request.remoteAddress(), "");
        EXPECT_EQ(request.page(), "");
    });
    kit::internal::ServletHandle servlet(page);
    ServletRunner(servlet).serve(get("/servlet").without("REMOTE_ADDR"));
}
