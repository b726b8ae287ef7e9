// Tests the page alone, and with its listener in the container.

#include <HttpServlet.h>
#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

extern "C" HttpServlet* createSamplePage();

namespace {

constexpr char kAddress[] = "/servlet?p=sample";

Request withTemplates(const Request& request) {
    return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
}

Request opened() {
    return withTemplates(get(kAddress));
}

Request sent(const std::string& name) {
    return withTemplates(post(kAddress).form({{"name", name}}));
}

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

} // namespace

TEST(SamplePage, ShowsItsForm) {
    ServletRunner page(createSamplePage);
    const Response response = page.serve(opened());
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "<h1>Hello, stranger!</h1>"));
    EXPECT_TRUE(shows(response, "maxlength=\"40\""));
}

TEST(SamplePage, GreetsByName) {
    ServletRunner page(createSamplePage);
    const Response response = page.serve(sent("Ann & Bob"));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "<h1>Hello, Ann &amp; Bob!</h1>"));
    EXPECT_FALSE(shows(response, "aria-invalid"));
}

TEST(SamplePage, ShowsTheProblemOfTheNameAndKeepsTheInput) {
    ServletRunner page(createSamplePage);
    const Response missing = page.serve(sent(""));
    EXPECT_EQ(missing.status, 422);
    EXPECT_TRUE(shows(missing, "The name is missing."));

    const std::string longName(41, 'a');
    const Response tooLong = page.serve(sent(longName));
    EXPECT_EQ(tooLong.status, 422);
    EXPECT_TRUE(shows(tooLong, "The name is too long."));
    EXPECT_TRUE(shows(tooLong, "value=\"" + longName + '"'));
}

TEST(SampleInContainer, CountsRequests) {
    Container container(SERVLET_XML);
    EXPECT_TRUE(shows(container.serve(opened()), "This is request number 1."));
    EXPECT_TRUE(shows(container.serve(sent("Ann")), "This is request number 2."));
}
