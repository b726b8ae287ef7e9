// A plug-in that breaks a written precondition of the kit ends at an assertion, which has the
// contract's own words.
#include "served.h"

#include "kit/text.h"

#include <gtest/gtest.h>

using namespace kit::testing;

TEST(ReadingDeathTest, MustNotHoldProblemNoneOrReturnAValueThatItDoesNotHave) {
    EXPECT_DEATH(kit::Reading<int>{kit::Problem::None}, "`problem` must not be Problem::None");
    const kit::Reading<int> missing(kit::Problem::Missing);
    EXPECT_DEATH(static_cast<void>(*missing), "there must be a value");
}

TEST(ReadingDeathTest, NeedsARangeWhoseMinimumIsNotAboveItsMaximum) {
    EXPECT_DEATH(kit::readNumber<int>("1", 2, 1), "`min` must not be above `max`");
    EXPECT_DEATH(kit::readText("a", 2, 1), "`min` must not be above `max`");
}

TEST(TextDeathTest, MustBeUtf8ToCountItsCharacters) {
    EXPECT_DEATH(kit::characterCount("\xFF"), "`text` must be UTF-8");
}

TEST(VariablesDeathTest, NeedNames) {
    EXPECT_DEATH(kit::Variables().set(nullptr, "a"), "names must not be null");
    EXPECT_DEATH(
        kit::Variables().rows(nullptr, std::vector<int>{1}, [](int) { return kit::Variables(); }),
        "names must not be null");
}

TEST(KitResponseDeathTest, NeedsAContentType) {
    EXPECT_DEATH(answerTo(get("/servlet?p=x"),
                          [](kit::Request&, kit::Response& out) { out.send(nullptr, "a"); }),
                 "`contentType` must not be null");
    EXPECT_DEATH(
        answerTo(get("/servlet?p=x"),
                 [](kit::Request&, kit::Response& out) { out.download("a.csv", nullptr, "a"); }),
        "`contentType` must not be null");
}

TEST(KitPluginDeathTest, NeedsAPageOrAListener) {
    EXPECT_DEATH(kit::newServlet(nullptr), "`page` must not be null");
    EXPECT_DEATH(kit::newListener(nullptr), "`listener` must not be null");
}

TEST(SessionDataDeathTest, MustNotBeNull) {
    kit::SessionData<int> numbers("number");
    EXPECT_DEATH(answerTo(get("/servlet?p=x"),
                          [&](kit::Request& request, kit::Response&) {
                              numbers.put(request.createSession(), nullptr);
                          }),
                 "`data` must not be null");
}
