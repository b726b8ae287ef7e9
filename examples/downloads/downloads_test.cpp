// Tests the pages alone, and the page for unknown ids in the container.

#include "downloads.h"

#include <kit/testing/browser.h>
#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>

using namespace kit::testing;

namespace {

// Runs one page.
template <typename Page>
class Served {
public:
    template <typename... Arguments>
    explicit Served(Arguments... arguments)
        : m_servlet(kit::newServlet(std::make_unique<Page>(arguments...))) {}

private:
    struct FreeStorage {
        void operator()(HttpServlet* servlet) const { ::operator delete(servlet); }
    };
    std::unique_ptr<HttpServlet, FreeStorage> m_servlet;

public:
    ServletRunner runner{*m_servlet};
    Browser browser{runner};
};

// A folder with the recording 2026/monday.wav, and a manual beside it.
class Downloads : public testing::Test {
protected:
    Downloads() {
        char name[] = "/tmp/downloads.XXXXXX";
        root = mkdtemp(name);
        for (const char* folder : {"/recordings", "/recordings/2026"}) {
            mkdir((root + folder).c_str(), 0700);
        }
        std::ofstream(root + "/recordings/2026/monday.wav") << "RIFF and sound";
        std::ofstream(root + "/manual.pdf") << "%PDF-1.7";
    }
    ~Downloads() override { EXPECT_EQ(std::system(("rm -rf " + root).c_str()), 0); }

    std::string root;
};

} // namespace

TEST_F(Downloads, IncludeARecording) {
    Served<RecordingsPage> page(root + "/recordings");
    const Response response = page.browser.send(get("/servlet?p=recordings&name=2026/monday.wav"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "RIFF and sound");
    EXPECT_EQ(response.header("Content-Type"), "audio/wav");
    EXPECT_EQ(response.header("Content-Length"), "14");
}

TEST_F(Downloads, IncludeAPartOfARecording) {
    Served<RecordingsPage> page(root + "/recordings");
    const Response response = page.browser.send(
        get("/servlet?p=recordings&name=2026/monday.wav").header("Range", "bytes=0-3"));
    EXPECT_EQ(response.status, 206);
    EXPECT_EQ(response.body, "RIFF");
    EXPECT_EQ(response.header("Content-Range"), "bytes 0-3/14");
}

TEST_F(Downloads, IncludeNothingOutsideTheirFolder) {
    Served<RecordingsPage> page(root + "/recordings");
    for (const char* name : {"../manual.pdf", "2026/../../manual.pdf", "/etc/passwd", "none", ""}) {
        const Response response =
            page.browser.send(get(std::string("/servlet?p=recordings&name=") + name));
        EXPECT_EQ(response.status, 404) << name;
        EXPECT_EQ(response.body, "There is no such recording.\n") << name;
    }
}

TEST_F(Downloads, IncludeTheManual) {
    Served<ManualPage> page(root + "/manual.pdf");
    const Response response = page.browser.send(get("/servlet?p=manual"));
    EXPECT_EQ(response.body, "%PDF-1.7");
    EXPECT_EQ(response.header("Content-Disposition"), "attachment; filename=manual.pdf");
    Served<ManualPage> missing(root + "/none.pdf");
    EXPECT_EQ(missing.browser.send(get("/servlet?p=manual")).status, 404);
}

TEST_F(Downloads, IncludeATableThatIsMadeWhileItIsSent) {
    Served<MeasurementsPage> page;
    const Response response = page.browser.send(get("/servlet?p=measurements"));
    EXPECT_EQ(response.header("Content-Type"), "text/csv; charset=utf-8");
    EXPECT_EQ(response.body.substr(0, 21), "second,volts\n0,5.0\n1,");
    EXPECT_EQ(response.body.substr(response.body.size() - 10), "99999,5.0\n");
}

TEST(News, AreNotSentAgainUntilTheyChange) {
    Served<NewsPage> page;
    const Response first = page.browser.send(get("/servlet?p=news"));
    EXPECT_EQ(first.body, "The news changed 0 times.\n");
    const Request again = get("/servlet?p=news").header("If-None-Match", *first.header("ETag"));
    EXPECT_EQ(page.browser.send(again).status, 304);
    page.browser.send(post("/servlet?p=news"));
    EXPECT_EQ(page.browser.send(again).status, 304) << "only a form with the token changes them";
    const std::string token(32, 'a');
    page.browser.send(post("/servlet?p=news").cookie("formToken", token).form({{"token", token}}));
    EXPECT_EQ(page.browser.send(again).body, "The news changed 1 times.\n");
}

TEST(Theme, IsKeptInACookie) {
    Served<ThemePage> page;
    EXPECT_EQ(page.browser.send(get("/servlet?p=theme")).body, "The theme is light.\n");
    const Response chosen = page.browser.send(get("/servlet?p=theme&theme=dark"));
    EXPECT_EQ(chosen.cookie("theme")->attribute("Max-Age"), "31536000");
    EXPECT_EQ(page.browser.send(get("/servlet?p=theme")).body, "The theme is dark.\n");
}

TEST(UnknownPage, IsAnsweredWithStatus404) {
    Container container(DOWNLOADS_XML);
    const Response response = container.serve(
        get("/servlet?p=recording").variable("DOCUMENT_ROOT", DOWNLOADS_DOCUMENT_ROOT));
    EXPECT_EQ(response.status, 404);
    EXPECT_NE(response.body.find("<h1>There is no page “recording”.</h1>"), std::string::npos);
}
