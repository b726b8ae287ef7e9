// Tests the pages and the listener of the guide's chapters.
#include "local_network.h"
#include "upload_page.h"
#include "welcome_page.h"

#include <kit/testing/browser.h>
#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

using namespace kit::testing;

namespace {

const std::string kPng = "\x89PNG\r\n\x1a\n and the picture";

Request withTemplates(const Request& request) {
    return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
}

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

// The token that the page has given to the browser.
const std::string kToken(32, 'a');
const std::string kFolder = testing::TempDir() + "guide_test";

// An upload page that stores its picture in a folder of the test.
class UploadedPicture : public testing::Test {
protected:
    UploadedPicture() { std::filesystem::create_directory(kFolder); }
    ~UploadedPicture() override { std::filesystem::remove_all(kFolder); }

    static Request uploading(const std::string& content, const std::string& token = kToken) {
        return withTemplates(post("/servlet?p=upload"))
            .cookie("formToken", kToken)
            .multipart({field("token", token), file("picture", "holiday.png", content)});
    }
    static std::string stored() {
        std::ifstream picture(kFolder + "/picture.png", std::ios::binary);
        return {std::istreambuf_iterator<char>(picture), {}};
    }
    static auto fileCount() {
        return std::distance(std::filesystem::directory_iterator(kFolder),
                             std::filesystem::directory_iterator());
    }

    ServletRunner page{
        [] { return kit::newServlet(std::make_unique<UploadPage>(kFolder + "/picture.png")); }};
};

} // namespace

TEST_F(UploadedPicture, IsStored) {
    const Response response = page.serve(uploading(kPng));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "The picture was stored."));
    EXPECT_EQ(stored(), kPng);
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(UploadedPicture, IsCheckedFirst) {
    page.serve(uploading(kPng));
    const struct {
        std::string content;
        const char* message;
    } cases[] = {{"GIF89a", "This is no PNG picture."},
                 {"", "This is no PNG picture."},
                 {kPng + std::string(UploadPage::kMaxBytes, 'x'), "The picture is too long."}};
    for (const auto& bad : cases) {
        const Response response = page.serve(uploading(bad.content));
        EXPECT_EQ(response.status, 422);
        EXPECT_TRUE(shows(response, bad.message)) << response.body;
        EXPECT_EQ(stored(), kPng) << "the earlier picture stays";
        EXPECT_EQ(fileCount(), 1);
    }
}

TEST_F(UploadedPicture, IsDiscardedIfAnotherSiteSentIt) {
    for (const std::string& token : {std::string(), std::string(32, 'b')}) {
        const Response response = page.serve(uploading(kPng, token));
        EXPECT_EQ(response.status, 422);
        EXPECT_TRUE(shows(response, "This form is out of date. Try again."));
        EXPECT_TRUE(shows(response, "name=\"token\" value=\"" + kToken + "\""));
        EXPECT_EQ(fileCount(), 0);
    }
}

TEST_F(UploadedPicture, IsDiscardedIfTheClientHangsUp) {
    const Request whole = uploading(kPng);
    const std::size_t length = std::stoul(*whole.valueOf("CONTENT_LENGTH"));
    for (std::size_t cut = 0; cut < length - 2; cut += 7) {
        EXPECT_TRUE(shows(page.serve(whole.cutOffAfter(cut)), "The picture is incomplete.")) << cut;
        EXPECT_EQ(fileCount(), 0) << cut;
    }
}

TEST_F(UploadedPicture, IsTheOnlyOneAtATime) {
    const Request large =
        uploading(kPng + std::string(UploadPage::kMaxBytes - 1024, 'x')).inPieces(1);
    std::thread first([&] { EXPECT_EQ(page.serve(large).status, 200); });
    while (fileCount() == 0) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(shows(page.serve(uploading(kPng)), "Another upload is under way."));
    first.join();
    EXPECT_GT(stored().size(), kPng.size());
}

TEST(LocalNetworkListener, AdmitsTheLocalNetwork) {
    ListenerRunner listener(*kit::newListener(std::make_unique<LocalNetworkListener>()));
    for (const char* address : {"127.0.0.1", "10.1.2.3", "172.16.0.1", "172.31.255.254",
                                "192.168.1.7", "169.254.1.1", "::1", "fe80::1", "fd00::1"}) {
        EXPECT_TRUE(listener.serve(get("/servlet?p=welcome").from(address)).passed) << address;
    }
}

TEST(LocalNetworkListener, RefusesAndLogsOthers) {
    ListenerRunner listener(*kit::newListener(std::make_unique<LocalNetworkListener>()));
    for (const char* address : {"9.255.255.255", "11.0.0.0", "172.15.0.1", "172.32.0.1",
                                "192.169.1.1", "2001:db8::1", ""}) {
        recorded_log::clear();
        const Response response = listener.serve(get("/servlet?p=welcome").from(address));
        EXPECT_FALSE(response.passed) << address;
        EXPECT_EQ(response.status, 403) << address;
        EXPECT_EQ(recorded_log::records().back(),
                  recorded_log::webDebug("warn", "Refused a client outside the local network: " +
                                                     std::string(address)));
    }
}

TEST(WelcomePage, FollowsTheBrowsersLanguage) {
    ServletRunner page([] { return kit::newServlet(std::make_unique<WelcomePage>()); });
    const Request request = withTemplates(get("/servlet?p=welcome"));
    const struct {
        const char* accepted;
        const char* language;
        const char* text;
    } cases[] = {{"de", "de", "Willkommen"},
                 {"de-AT,de;q=0.9,en;q=0.8", "de", "Willkommen"},
                 {"fr,en;q=0.5", "en", "Welcome"},
                 {"fr", "en", "Welcome"},
                 {"", "en", "Welcome"}};
    for (const auto& one : cases) {
        const Response response = page.serve(request.header("Accept-Language", one.accepted));
        EXPECT_EQ(response.header("Content-Language"), one.language) << one.accepted;
        EXPECT_TRUE(shows(response, one.text)) << one.accepted;
    }
}
