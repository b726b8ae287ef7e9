// Everything at once: users who sign in and out, change settings and view pages, pages that are
// created, and the timer, on more threads than a device is likely to have.
#include "phone_test.h"

#include <atomic>
#include <thread>
#include <vector>

using PhoneUnderLoad = PhoneFixture;
using kit::testing::test_clock::advanceSeconds;

namespace {

constexpr int kPeople = 8;
constexpr int kVisits = 6;

// Signs in and out repeatedly.
void visit(kit::testing::Runner& runner, int number) {
    const std::string own = std::to_string(number);
    for (int visit = 0; visit < kVisits; ++visit) {
        SCOPED_TRACE("visit " + std::to_string(visit) + " of person " + own);
        Visitor person(runner, "192.0.2." + own);
        EXPECT_EQ(person.page("status").status, 303) << "before signing in";
        const Answer signedIn = person.signIn();
        EXPECT_EQ(signedIn.status, 303) << signedIn.text();
        EXPECT_EQ(person.page("status").title(), "Status");
        EXPECT_EQ(person.page("contacts&search=Carol").status, 200);
        EXPECT_EQ(person.page("status-data").status, 200);
        EXPECT_NE(person.submit("audio", {{"ring", own}}).status, 404);
        EXPECT_EQ(person.page("notice").status, 200);
        EXPECT_EQ(person.submitWithoutToken("audio").status, 403);
        EXPECT_EQ(person.submit("login&q=logout").status, 303);
        EXPECT_EQ(person.page("status").status, 303) << "after signing out";
    }
}

} // namespace

TEST_F(PhoneUnderLoad, ServesManyUsersAtOnce) {
    std::atomic<int> here{kPeople};
    std::vector<std::thread> people;
    for (int number = 1; number <= kPeople; ++number)
        people.emplace_back([&, number] {
            visit(*container, number);
            --here;
        });
    // A request must not take seconds of this clock, or a sign-out's session is never freed.
    for (int sweeps = 0; here > 0; ++sweeps) {
        advanceSeconds(sweeps % 20 == 0 ? 1 : 0);
        container->sweep();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (std::thread& person : people)
        person.join();
    advanceSeconds(3600);
    container->sweep();
    EXPECT_EQ(container->sessionCount(), 0);
}

// All requests share the buffer in which the container rewrites addresses of the older interface,
// on purpose and without a lock: any request may be answered with the redirect of another one, or
// with 404.
TEST_F(PhoneUnderLoad, AnswersRequestsForPagesOfTheOlderInterfaceAtOnce) {
    std::vector<std::thread> people;
    for (int number = 1; number <= kPeople; ++number)
        people.emplace_back([&, number] {
            const std::string own = std::to_string(number);
            Visitor person(*container, "192.0.2." + own);
            for (int visit = 0; visit < kVisits; ++visit) {
                const int older = person.send(get("/cgi-bin/Quillpage.tpx?page=x" + own)).status;
                EXPECT_TRUE(older == 302 || older == 404) << older;
            }
        });
    for (std::thread& person : people)
        person.join();
}
