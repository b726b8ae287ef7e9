#include "served.h"

#include "kit/flash.h"

#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

using namespace kit::testing;

namespace {

// Keeps the parameter "say" of a POST, and shows what was kept otherwise.
void answer(kit::Request& request, kit::Response& response) {
    if (request.isPost()) {
        kit::setFlash(request, request.parameter("say").value_or(""));
        response.seeOther("/servlet?p=x");
    } else {
        response.text("<" + kit::takeFlash(request) + ">");
    }
}

class FlashMessage : public testing::Test {
protected:
    void say(const std::string& message) {
        served.browser.send(post("/servlet?p=x").form({{"say", message}}));
    }
    std::string shown() { return served.browser.send(get("/servlet?p=x")).body; }

    Served served{answer};
};

} // namespace

TEST_F(FlashMessage, IsShownOnce) {
    EXPECT_EQ(shown(), "<>");
    EXPECT_EQ(served.runner.sessionCount(), 0) << "looking for one creates no session";
    say("Saved.");
    EXPECT_EQ(shown(), "<Saved.>");
    EXPECT_EQ(shown(), "<>");
}

TEST_F(FlashMessage, IsTheLastOne) {
    say("one");
    say("two");
    EXPECT_EQ(shown(), "<two>");
    EXPECT_EQ(shown(), "<>");
    say("three");
    EXPECT_EQ(shown(), "<three>");
}

TEST_F(FlashMessage, BelongsToItsSession) {
    Browser other(served.runner);
    other.send(post("/servlet?p=x").form({{"say", "to you"}}));
    say("to me");
    EXPECT_EQ(shown(), "<to me>");
    EXPECT_EQ(other.send(get("/servlet?p=x")).body, "<to you>");
}

TEST_F(FlashMessage, EndsWithItsSession) {
    say("Saved.");
    test_clock::advanceSeconds(181);
    EXPECT_EQ(shown(), "<>");
    EXPECT_EQ(kit::internal::flashes().size(), 0u);
}

TEST_F(FlashMessage, IsCutBetweenCharacters) {
    say(std::string(kit::kMaxFlashBytes - 1, 'x') + "\xC3\xA9");
    EXPECT_EQ(shown(), "<" + std::string(kit::kMaxFlashBytes - 1, 'x') + ">");
    say(std::string(kit::kMaxFlashBytes, 'x'));
    EXPECT_EQ(shown().size(), kit::kMaxFlashBytes + 2) << "the longest";
}

TEST_F(FlashMessage, IsNotTakenByARequestThatShowsNothing) {
    say("Saved.");
    served.browser.send(Request("HEAD", "/servlet?p=x"));
    EXPECT_EQ(shown(), "<Saved.>");
}

TEST_F(FlashMessage, IsShownToOneOfSeveralRequests) {
    for (int round = 0; round < 50; ++round) {
        say("Saved.");
        const Request request =
            get("/servlet?p=x").cookie("JSESSIONID", *served.browser.cookie("JSESSIONID"));
        std::array<std::string, 4> bodies;
        std::array<std::thread, 4> threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i] = std::thread([&, i] { bodies[i] = served.runner.serve(request).body; });
        }
        int shownTimes = 0;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i].join();
            shownTimes += bodies[i] == "<Saved.>";
        }
        EXPECT_EQ(shownTimes, 1);
    }
}
