// Tests the page alone, and in the container.

#include <HttpServlet.h>
#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

using namespace kit::testing;

extern "C" HttpServlet* createSamplePage();

namespace {

constexpr char kAddress[] = "/servlet?p=sample";
const std::string kPng = "\x89PNG\r\n\x1a\n and the picture";

// A folder like /phone of a device, in the build folder.
const std::filesystem::path kPhone = std::filesystem::absolute("phone");
const std::string kPicture = kPhone / "data/sample.png";

Request withTemplates(const Request& request) {
    return request.variable("DOCUMENT_ROOT", (kPhone / "www").string());
}

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

// The page in a browser, with no picture stored.
class SamplePage : public testing::Test {
protected:
    SamplePage() {
        std::filesystem::create_directories(kPhone / "data");
        std::filesystem::create_directory_symlink(DOCUMENT_ROOT, kPhone / "www");
    }
    ~SamplePage() override { std::filesystem::remove_all(kPhone); }

    Response open() { return browser.send(withTemplates(get(kAddress))); }
    Request uploading(const std::string& content) {
        open(); // sets the cookie with the token
        return withTemplates(post(kAddress))
            .multipart({field("token", browser.cookie("formToken").value_or("")),
                        file("picture", "holiday.png", content)});
    }
    static std::string stored() {
        std::ifstream picture(kPicture, std::ios::binary);
        return {std::istreambuf_iterator<char>(picture), {}};
    }
    static bool isReceivedFileLeft() { return std::filesystem::exists(kPicture + ".received"); }

    ServletRunner page{createSamplePage};
    Browser browser{page};
};

} // namespace

TEST_F(SamplePage, StoresAPicture) {
    const Response response = browser.send(uploading(kPng));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "The picture was stored."));
    EXPECT_TRUE(shows(response, "The stored picture has 24 bytes."));
    EXPECT_EQ(stored(), kPng);
    EXPECT_FALSE(isReceivedFileLeft());
}

TEST_F(SamplePage, ChecksThePictureFirst) {
    browser.send(uploading(kPng));
    const struct {
        std::string content;
        const char* message;
    } cases[] = {{"GIF89a", "This file is not a PNG picture."},
                 {"", "This file is not a PNG picture."},
                 {kPng + std::string(1024 * 1024, 'x'), "The picture is larger than 1 MiB."}};
    for (const auto& bad : cases) {
        const Response response = browser.send(uploading(bad.content));
        EXPECT_EQ(response.status, 422);
        EXPECT_TRUE(shows(response, bad.message)) << response.body;
        EXPECT_EQ(stored(), kPng) << "the earlier picture stays";
    }
    EXPECT_FALSE(isReceivedFileLeft());
}

TEST_F(SamplePage, DiscardsAnUploadThatIsCutOff) {
    const Request whole = uploading(kPng);
    const std::size_t length = std::stoul(*whole.valueOf("CONTENT_LENGTH"));
    for (std::size_t cut = 0; cut < length - 2; cut += 7) {
        EXPECT_TRUE(shows(browser.send(whole.cutOffAfter(cut)), "The picture is incomplete."))
            << cut;
        EXPECT_EQ(stored(), "");
    }
}

TEST_F(SamplePage, ReceivesOnePictureAtATime) {
    const Request small = uploading(kPng);
    const Request large = uploading(kPng + std::string(1000 * 1000, 'x'))
                              .cookie("formToken", *browser.cookie("formToken"))
                              .inPieces(1);
    std::thread first([&] { EXPECT_EQ(page.serve(large).status, 200); });
    while (std::filesystem::is_empty(kPhone / "data")) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(shows(browser.send(small), "Another upload is under way."));
    first.join();
    EXPECT_GT(stored().size(), kPng.size());
}

TEST_F(SamplePage, TakesNoPictureFromOtherSites) {
    Browser other(page);
    const Response forged = other.send(uploading(kPng));
    EXPECT_EQ(forged.status, 422);
    EXPECT_TRUE(shows(forged, "This form is out of date."));
    EXPECT_EQ(stored(), "");
}

TEST_F(SamplePage, ShowsItsFormInTheContainer) {
    Container container(SERVLET_XML);
    const Response response = container.serve(withTemplates(get(kAddress)));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(shows(response, "PNG picture, at most 1 MiB"));
    EXPECT_TRUE(shows(response, "No picture is stored yet."));
}
