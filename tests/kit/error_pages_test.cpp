// A plug-in's own pages for the errors that the kit answers.
#include "served.h"

#include "kit/actions.h"
#include "kit/error_pages.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace kit::testing;

namespace {

constexpr const char* kPlainFailure = "The page failed; the device's log says why.\n";

Request asked() {
    return get("/servlet?p=x").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT);
}

void fail(kit::Request&, kit::Response&) {
    throw std::runtime_error("out of paper");
}

class NoActions final : public kit::ActionPage {};

HttpServlet* createNoActions() {
    return kit::newServlet(std::make_unique<NoActions>());
}

class ErrorPages : public testing::Test {
protected:
    ErrorPages() {
        kit::ErrorPages::use([](kit::Request&, kit::Response& response, int status) {
            response.show("page.html", kit::Variables().set("name", status));
            return true;
        });
        recorded_log::clear();
    }
    ~ErrorPages() override { kit::ErrorPages::use(nullptr); }
};

} // namespace

TEST_F(ErrorPages, ReplaceTheAnswerOfAPageThatFailed) {
    const Response response = answerTo(asked(), fail);
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "Hello, 500!\n");
    EXPECT_EQ(response.header("Content-Type"), "text/html; charset=utf-8");
}

TEST_F(ErrorPages, AreNotTheFileThatThePageWasToSend) {
    const Response response = answerTo(asked(), [](kit::Request&, kit::Response& out) {
        out.header("Content-Type", "text/csv");
        out.attachment("list.csv");
        throw std::runtime_error("out of paper");
    });
    EXPECT_EQ(response.body, "Hello, 500!\n");
    EXPECT_EQ(response.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(response.header("Content-Disposition"), "inline");
}

TEST_F(ErrorPages, ReplaceTheAnswersToUnknownActionsAndMethods) {
    ServletRunner page(createNoActions);
    Browser browser(page);
    const auto sent = [&](const char* method) {
        return browser.send(
            Request(method, "/servlet?p=x&q=a").variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT));
    };
    EXPECT_EQ(sent("POST").status, 404);
    EXPECT_EQ(sent("POST").body, "Hello, 404!\n");
    EXPECT_EQ(sent("PUT").status, 405);
    EXPECT_EQ(sent("PUT").body, "Hello, 405!\n");
    EXPECT_EQ(sent("PUT").header("Allow"), "POST");
}

TEST_F(ErrorPages, ReplaceTheRefusalsOfAttacks) {
    const auto never = [](kit::Request&, kit::Response&) { ADD_FAILURE() << "reached the page"; };
    const Response forged = answerTo(post("/servlet?p=x")
                                         .variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT)
                                         .header("Sec-Fetch-Site", "cross-site"),
                                     never);
    EXPECT_EQ(forged.status, 403);
    EXPECT_EQ(forged.body, "Hello, 403!\n");
    const Response rebound = answerTo(asked().header("Host", "rebound.example"), never);
    EXPECT_EQ(rebound.status, 421);
    EXPECT_EQ(rebound.body, "Hello, 421!\n");
}

TEST_F(ErrorPages, MayLeaveAnErrorToTheKit) {
    kit::ErrorPages::use([](kit::Request&, kit::Response&, int) { return false; });
    const Response response = answerTo(asked(), fail);
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, kPlainFailure);
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
}

TEST_F(ErrorPages, ThatFailAreReplacedByText) {
    kit::ErrorPages::use([](kit::Request&, kit::Response& response, int) -> bool {
        response.show("page.html", kit::Variables().set("name", "nobody"));
        throw std::runtime_error("no ink");
    });
    const Response response = answerTo(asked(), fail);
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, kPlainFailure);
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
    const auto log = recorded_log::records();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[1],
              recorded_log::webDebug("error", "Page x: sending the error page failed: no ink"));
}

TEST_F(ErrorPages, WhoseTemplateIsMissingAreReplacedByText) {
    const Response response =
        answerTo(get("/servlet?p=x").variable("DOCUMENT_ROOT", "/none"), fail);
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, kPlainFailure);
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
}

TEST_F(ErrorPages, AreNotShownOnceAPartHasBeenSent) {
    const Response response = answerTo(asked(), [](kit::Request&, kit::Response& out) {
        out.raw().print("%s", "begun");
        throw std::runtime_error("out of paper");
    });
    EXPECT_EQ(response.body, "begun");
}
