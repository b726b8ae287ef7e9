// The test kit's Container, with a plug-in library of its own.
#include <kit/testing/browser.h>
#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>
#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using namespace kit::testing;

class Containers : public testing::Test {
protected:
    Container container{SERVLET_XML};
};

TEST_F(Containers, ServeThePagesOfThePlugIn) {
    const Response response = container.serve(get("/servlet?p=hello&name=you"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("content-type"), "text/plain");
    EXPECT_EQ(response.body, "Hello, you!");
    EXPECT_EQ(container.serve(get("/servlet?p=hello")).body, "Hello, stranger!");
}

TEST_F(Containers, RenderTemplatesInTheLanguageOfTheClient) {
    const Response response =
        container.serve(get("/servlet?p=card&title=A%26B").header("Accept-Language", "de"));
    EXPECT_EQ(response.body, "<h1>A&amp;B</h1><p>de</p>\n");
}

TEST_F(Containers, LetAListenerEndARequest) {
    EXPECT_EQ(container.serve(get("/servlet?p=hello&closed=1")).body, "closed");
}

TEST_F(Containers, AnswerWithTheContainersErrorPage) {
    for (const char* uri : {"/servlet?q=1", "/servlet?p=hello&q=%3C", "/servlet?p=hello&acc=x"}) {
        const Response response = container.serve(get(uri));
        EXPECT_EQ(response.status, 404) << uri;
        EXPECT_EQ(response.body, "<h1>404 - Not Found</h1>") << uri;
    }
}

TEST_F(Containers, WriteTheErrorPageOfAnUnknownPageAfterTheHeaders) {
    const Response response = container.serve(get("/servlet?p=unknown"));
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.body.find("404 - Not Found"), std::string::npos);
}

TEST_F(Containers, RedirectUrlsOfTheOlderInterface) {
    const Response response = container.serve(get("/cgi-bin/Velmoranix.acx?Id=2"));
    EXPECT_EQ(response.status, 302);
    EXPECT_EQ(response.header("Location"), "/servlet?Id=2");
    EXPECT_EQ(response.body, "");
}

TEST_F(Containers, KeepASessionForEachBrowser) {
    Browser one(container);
    Browser other(container);
    EXPECT_EQ(one.send(get("/servlet?p=counter")).body, "1");
    EXPECT_EQ(one.send(get("/servlet?p=counter")).body, "2");
    EXPECT_EQ(other.send(get("/servlet?p=counter")).body, "1");
    EXPECT_EQ(one.send(get("/servlet?p=counter")).body, "3");
    EXPECT_EQ(container.sessionCount(), 2);
}

TEST_F(Containers, EndIdleSessionsInASweep) {
    Browser browser(container);
    browser.send(get("/servlet?p=counter"));
    test_clock::advanceSeconds(179);
    container.sweep();
    EXPECT_EQ(container.sessionCount(), 1);
    test_clock::advanceSeconds(1);
    container.sweep();
    EXPECT_EQ(container.sessionCount(), 0);
    EXPECT_EQ(browser.send(get("/servlet?p=counter")).body, "1");
}

TEST_F(Containers, RecordThePlugInsLog) {
    recorded_log::clear();
    container.serve(get("/servlet?p=hello"));
    EXPECT_EQ(recorded_log::records(), (std::vector<LogRecord>{{"app_log", 7, 6, "greeting"}}));
}

TEST_F(Containers, HaveTheirOwnSessions) {
    Container another(SERVLET_XML);
    Browser(container).send(get("/servlet?p=counter"));
    EXPECT_EQ(container.sessionCount(), 1);
    EXPECT_EQ(another.sessionCount(), 0);
}

TEST(ContainerStart, ThrowsIfTheFileCannotBeRead) {
    EXPECT_THROW(Container("/does/not/exist.xml"), std::runtime_error);
}

TEST(ContainerStartDeathTest, ReportsWhyThePlugInLibraryCannotBeOpened) {
    const std::string config = SCRATCH_FOLDER "/without_library.xml";
    std::ofstream(config) << "<plugins path=\"/does/not/exist.so\"/>";
    EXPECT_EXIT(Container{config}, testing::ExitedWithCode(255),
                "Cannot load library error=/does/not/exist.so");
}

} // namespace
