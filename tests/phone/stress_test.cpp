// Everything at once: users who sign in and out, change settings and view pages, pages that are
// created, and the timer, on more threads than a device is likely to have.
#include "phone_test.h"

#include <atomic>
#include <thread>
#include <vector>

using Phone = PhoneFixture;
using kit::testing::test_clock::advanceSeconds;

namespace {

constexpr int kPeople = 8;
constexpr int kVisits = 6;

// Signs in and out repeatedly and returns the number of unexpected answers.
int visitsThatFailed(kit::testing::Runner& runner, int number) {
    const std::string own = std::to_string(number);
    int failures = 0;
    const auto want = [&failures](bool fine) { failures += fine ? 0 : 1; };
    for (int visit = 0; visit < kVisits; ++visit) {
        Visitor person(runner, "192.0.2." + own);
        want(person.page("status").status == 303);
        want(person.signIn().status == 303);
        want(person.page("status").title() == "Status");
        want(person.page("contacts&search=Carol").status == 200);
        want(person.page("status-data").status == 200);
        want(person.submit("audio", {{"ring", own}}).status != 404);
        want(person.send(get("/cgi-bin/Quillpage.tpx?page=x" + own)).status == 302);
        want(person.page("notice").status == 200);
        want(person.submitWithoutToken("audio").status == 403);
        want(person.submit("login&q=logout").status == 303);
        want(person.page("status").status == 303);
    }
    return failures;
}

TEST_F(Phone, ServesManyUsersAtOnce) {
    std::atomic<int> failures{0};
    std::atomic<int> here{kPeople};
    std::vector<std::thread> people;
    for (int number = 1; number <= kPeople; ++number)
        people.emplace_back([&, number] {
            failures += visitsThatFailed(*container, number);
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
    EXPECT_EQ(failures, 0);
    advanceSeconds(3600);
    container->sweep();
    EXPECT_EQ(container->sessionCount(), 0);
}

} // namespace
