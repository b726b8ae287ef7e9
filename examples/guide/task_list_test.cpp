#include "task_list.h"

#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace kit::testing;

namespace {

class TaskList : public testing::Test {
protected:
    Response add(const std::string& json) {
        return tasks.serve(post("/servlet?p=tasks").body(json, "application/json"));
    }
    std::string list() { return tasks.serve(get("/servlet?p=tasks")).body; }

    ServletRunner tasks{[] { return kit::newServlet(std::make_unique<TaskListPage>()); }};
};

} // namespace

TEST_F(TaskList, ReturnsTheTasksThatWereAdded) {
    EXPECT_EQ(list(), R"({"tasks":[],"count":0})");
    const Response added = add(R"({"title": "Call the front desk", "priority": 2})");
    EXPECT_EQ(added.status, 201);
    EXPECT_EQ(added.body, R"({"title":"Call the front desk","priority":2})");
    EXPECT_EQ(list(), R"({"tasks":[{"title":"Call the front desk","priority":2}],"count":1})");
}

TEST_F(TaskList, SaysWhatIsWrong) {
    const Response wrong = add(R"({"title": "", "priority": "high"})");
    EXPECT_EQ(wrong.status, 422);
    EXPECT_EQ(wrong.body, R"({"title":"is missing","priority":"is of the wrong type"})");

    const Response broken = add("{\"title\": \"Call\",\n \"priority\" 2}");
    EXPECT_EQ(broken.status, 400);
    EXPECT_EQ(broken.body, R"({"error":"line 2, column 13: while parsing object separator)"
                           R"( - unexpected number literal; expected \u0027:\u0027"})");

    const Request form = post("/servlet?p=tasks").body("{}", "text/plain");
    EXPECT_EQ(tasks.serve(form).status, 415);
    EXPECT_EQ(list(), R"({"tasks":[],"count":0})");
}

TEST_F(TaskList, HoldsAHundredTasks) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(add(R"({"title": "Call", "priority": 1})").status, 201);
    }
    EXPECT_EQ(add(R"({"title": "Call", "priority": 1})").status, 409);
}
