// Tests the page alone, and in the container.

#include <HttpServlet.h>
#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

extern "C" HttpServlet* createSamplePage();

namespace {

constexpr char kTasks[] = "/servlet?p=sample&q=tasks";

// The list of tasks, empty at first.
class SamplePage : public testing::Test {
protected:
    Response add(const std::string& json, const std::string& type = "application/json") {
        return page.serve(post(kTasks).body(json, type));
    }
    std::string list() { return page.serve(get(kTasks)).body; }

    ServletRunner page{createSamplePage};
};

} // namespace

TEST_F(SamplePage, ReturnsTheTasksThatWereAdded) {
    EXPECT_EQ(list(), R"({"tasks":[]})");
    const Response added = add(R"({"title": "Call <b>", "priority": 2})");
    EXPECT_EQ(added.status, 201);
    EXPECT_EQ(list(), R"({"tasks":[)" + added.body + "]}");
}

TEST_F(SamplePage, SaysWhatIsWrong) {
    const struct {
        const char* json;
        int status;
        const char* message;
    } cases[] = {{R"({"title": "", "priority": 1})", 422, "The title is missing."},
                 {R"({"title": 7, "priority": 1})", 422, "The title is of the wrong type."},
                 {R"({"title": "Call", "priority": 6})", 422, "The priority is too large."},
                 {"{\"title\": \"Call\",\n \"priority\" 2}", 400,
                  "line 2, column 13: while parsing object separator - unexpected number literal; "
                  "expected "}};
    for (const auto& bad : cases) {
        const Response response = add(bad.json);
        EXPECT_EQ(response.status, bad.status) << bad.json;
        EXPECT_NE(response.body.find(bad.message), std::string::npos) << response.body;
    }
    EXPECT_EQ(list(), R"({"tasks":[]})");
}

TEST_F(SamplePage, TakesNoOtherType) {
    EXPECT_EQ(add(R"({"title": "Call", "priority": 1})", "text/plain").status, 415);
    EXPECT_EQ(add(std::string(70000, ' ')).status, 413);
    EXPECT_EQ(list(), R"({"tasks":[]})");
}

TEST_F(SamplePage, HoldsAHundredTasks) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(add(R"({"title": "Call", "priority": 1})").status, 201);
    }
    EXPECT_EQ(add(R"({"title": "Call", "priority": 1})").status, 409);
}

TEST_F(SamplePage, IsShownInTheContainer) {
    Container container(SERVLET_XML);
    const Response response =
        container.serve(get("/servlet?p=sample").variable("DOCUMENT_ROOT", DOCUMENT_ROOT));
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.body.find("<h1>Tasks</h1>"), std::string::npos);
}
