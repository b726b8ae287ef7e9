#include "served.h"

#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace kit::testing;
using kit::testing::test_clock::advanceSeconds;

namespace {

std::atomic<int> alive{0};

struct Cart {
    Cart() { ++alive; }
    ~Cart() { --alive; }
    std::atomic<int> items{0};
};

// A page that adds an item to its session's cart and shows the number of items. With q=look it only
// shows it, with q=drop it removes the cart, with q=end it ends the session.
class Shop {
public:
    kit::SessionData<Cart> carts{"cart"};
    Served served{[this](kit::Request& request, kit::Response& response) {
        const auto action = request.parameter("q");
        HttpSession* session = request.raw().getSession(action != "look");
        if (!session) {
            response.text("no session");
        } else if (action == "look") {
            const auto cart = carts.find(*session);
            response.text(cart ? std::to_string(cart->items) : "no cart");
        } else if (action == "drop") {
            carts.erase(*session);
        } else if (action == "end") {
            session->setMaxInactiveInterval(1);
        } else {
            session->setMaxInactiveInterval(request.number<int>("time", 0, 9999).valueOr(180));
            response.text(std::to_string(++carts.findOrCreate(*session)->items));
        }
    }};

    std::string ask(Browser& browser, const std::string& query) {
        return browser.send(get("/servlet?p=shop" + query)).body;
    }
    std::string ask(const std::string& query) { return ask(served.browser, query); }
};

} // namespace

TEST(SessionData, IsFoundAgainBySession) {
    Shop shop;
    EXPECT_EQ(shop.ask(""), "1");
    EXPECT_EQ(shop.ask(""), "2");
    EXPECT_EQ(shop.ask("&q=look"), "2");
    EXPECT_EQ(shop.carts.size(), 1u);
}

TEST(SessionData, IsSeparateForEachSession) {
    Shop shop;
    Browser other(shop.served.runner);
    EXPECT_EQ(shop.ask(""), "1");
    EXPECT_EQ(shop.ask(other, ""), "1");
    EXPECT_EQ(shop.ask(""), "2");
    EXPECT_EQ(shop.carts.size(), 2u);
}

TEST(SessionData, IsAnAttributeOfTheSession) {
    kit::SessionData<Cart> carts("cart");
    answerTo(get("/servlet?p=x"), [&](kit::Request& request, kit::Response&) {
        HttpSession& session = request.createSession();
        const auto cart = carts.findOrCreate(session);
        EXPECT_EQ(session.getAttribute("cart"), cart.get());
        carts.erase(session);
        EXPECT_FALSE(session.existAttribute("cart"));
        EXPECT_EQ(carts.find(session), nullptr);
    });
}

TEST(SessionData, IsFreedWhenItIsErased) {
    Shop shop;
    shop.ask("");
    EXPECT_EQ(alive, 1);
    shop.ask("&q=drop");
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(shop.ask("&q=look"), "no cart");
    EXPECT_EQ(shop.ask(""), "1");
}

TEST(SessionData, IsFreedAfterTheSessionHasEnded) {
    Shop shop;
    shop.ask("");
    advanceSeconds(181);
    shop.served.runner.sweep();
    EXPECT_EQ(shop.ask("&q=look"), "no session");
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(shop.carts.size(), 0u);
}

TEST(SessionData, LivesAsLongAsItsSession) {
    Shop shop;
    shop.ask("");
    for (int i = 0; i < 20; ++i) {
        advanceSeconds(179);
        EXPECT_EQ(shop.ask("&q=look"), "1");
    }
}

TEST(SessionData, IsKeptByRequestsThatDoNotUseIt) {
    Shop shop;
    kit::SessionData<int> others("other");
    FunctionPage idle([](kit::Request&, kit::Response& response) { response.text("idle"); });
    shop.ask("");
    for (int i = 0; i < 5; ++i) {
        advanceSeconds(100);
        shop.served.browser.send(get("/servlet?p=other"));
    }
    EXPECT_EQ(alive, 1);
}

TEST(SessionData, FollowsTheTimeOutThatThePageSets) {
    Shop shop;
    shop.ask("&time=1000");
    advanceSeconds(999);
    Browser other(shop.served.runner);
    shop.ask(other, "&q=look");
    EXPECT_EQ(alive, 1) << "the request of another session freed it";
    EXPECT_EQ(shop.ask("&q=look"), "1");
    shop.ask("&q=end");
    advanceSeconds(3);
    shop.ask(other, "&q=look");
    EXPECT_EQ(alive, 0);
}

TEST(SessionData, SurvivesALongRequest) {
    kit::SessionData<Cart> carts("cart");
    Served* again = nullptr;
    bool inner = false;
    Served served([&](kit::Request& request, kit::Response&) {
        if (std::exchange(inner, true)) {
            return;
        }
        const auto cart = carts.findOrCreate(request.createSession());
        advanceSeconds(1000);
        again->runner.sweep();
        again->browser.send(get("/servlet?p=x")); // another client's request, meanwhile
        EXPECT_EQ(carts.size(), 1u);
        EXPECT_EQ(carts.find(*request.session()), cart);
    });
    again = &served;
    served.runner.serve(get("/servlet?p=x"));
    EXPECT_TRUE(inner);
    EXPECT_EQ(alive, 1);
}

TEST(SessionData, IsNotPassedOnToALaterSessionWithTheSameId) {
    kit::SessionData<Cart> carts("cart");
    answerTo(get("/servlet?p=x"), [&](kit::Request& request, kit::Response&) {
        HttpSession& session = request.createSession();
        carts.findOrCreate(session)->items = 5;
        // Now the session looks like a later one with the same id.
        session.removeAttribute("cart");
        EXPECT_EQ(carts.find(session), nullptr);
        EXPECT_EQ(carts.findOrCreate(session)->items, 0);
    });
    EXPECT_EQ(alive, 1);
}

TEST(SessionData, IsErasedWhereThePredicateIsTrue) {
    Shop shop;
    Browser other(shop.served.runner);
    shop.ask("");
    shop.ask(other, "");
    shop.ask(other, "");
    shop.carts.eraseIf([](const Cart& cart) { return cart.items > 1; });
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(shop.ask("&q=look"), "1");
    EXPECT_EQ(shop.ask(other, "&q=look"), "no cart");
}

TEST(SessionData, LivesAsLongAsASharedPointerToIt) {
    std::shared_ptr<Cart> held;
    {
        kit::SessionData<Cart> carts("cart");
        answerTo(get("/servlet?p=x"), [&](kit::Request& request, kit::Response&) {
            held = carts.findOrCreate(request.createSession());
        });
    }
    EXPECT_EQ(alive, 1);
    held.reset();
    EXPECT_EQ(alive, 0);
}

TEST(SessionData, KeepsTheDataThatWasPutFirst) {
    kit::SessionData<Cart> carts("cart");
    answerTo(get("/servlet?p=x"), [&](kit::Request& request, kit::Response&) {
        HttpSession& session = request.createSession();
        const auto first = carts.put(session, std::make_shared<Cart>());
        EXPECT_EQ(carts.put(session, std::make_shared<Cart>()), first);
    });
}

TEST(SessionData, IsThreadSafe) {
    constexpr int kThreads = 8;
    constexpr int kRequests = 200;
    Shop shop;
    shop.ask("");
    const std::string id = *shop.served.browser.cookie("JSESSIONID");
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            Browser own(shop.served.runner);
            for (int i = 0; i < kRequests; ++i) {
                shop.served.runner.serve(get("/servlet?p=shop").cookie("JSESSIONID", id));
                shop.ask(own, "");
                if (t == 0) {
                    shop.ask(own, "&q=drop");
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(shop.ask("&q=look"), std::to_string(1 + kThreads * kRequests));
}
