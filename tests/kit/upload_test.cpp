#include "kit/upload.h"

#include "served.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace kit::testing;
using kit::Problem;

namespace {

const std::string kFolder = testing::TempDir() + "kit_upload_test";
const std::string kPath = kFolder + "/image";
constexpr std::size_t kMaxBytes = 1000;

Request sent(const std::vector<Part>& parts) {
    return post("/servlet?p=upgrade").multipart(parts);
}
const Request kSent = sent({field("note", "x"), file("image", "a b.img", "bytes")});

class Upload : public testing::Test {
protected:
    Upload() {
        std::filesystem::create_directory(kFolder);
        recorded_log::clear();
    }
    ~Upload() override { std::filesystem::remove_all(kFolder); }

    // Returns the client's name for the file, or the problem.
    static std::string save(const Request& request) {
        return answerTo(request,
                        [](kit::Request& seen, kit::Response& response) {
                            const auto name = kit::saveUpload(seen, "image", kPath, kMaxBytes);
                            response.text(name ? std::string(*name)
                                               : kit::describe(name.problem()));
                            char rest;
                            EXPECT_EQ(seen.raw().receiveBlockData(&rest, 1), 0)
                                << "the body was not read";
                        })
            .body;
    }
    // Returns the bytes, or the problem.
    static std::string read(const Request& request) {
        return answerTo(request,
                        [](kit::Request& seen, kit::Response& response) {
                            const auto bytes = kit::readUpload(seen, "image", kMaxBytes);
                            response.text(bytes ? *bytes : kit::describe(bytes.problem()));
                            char rest;
                            EXPECT_EQ(seen.raw().receiveBlockData(&rest, 1), 0)
                                << "the body was not read";
                        })
            .body;
    }
    static std::string stored() {
        std::ifstream in(kPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // Expects one line in the log, or none for an empty reason.
    static void expectLogged(const std::string& reason) {
        const auto line =
            recorded_log::webDebug("warn", "Page upgrade: the upload of image failed: " + reason);
        EXPECT_EQ(recorded_log::records(),
                  reason.empty() ? std::vector<LogRecord>{} : std::vector{line});
        recorded_log::clear();
    }
};

const char* const kMalformed = "the form is malformed, or the client has gone";
const char* const kTooLong = "more than 1000 bytes";

} // namespace

TEST_F(Upload, IsStoredUnderAPath) {
    EXPECT_EQ(save(kSent), "a b.img");
    EXPECT_EQ(stored(), "bytes");
    EXPECT_EQ(save(sent({file("image", "", "others")})), "");
    EXPECT_EQ(stored(), "others");
    EXPECT_EQ(save(sent({file("image", "empty", "")})), "empty");
    EXPECT_EQ(stored(), "");
    expectLogged("");
}

TEST_F(Upload, IsReadIntoMemory) {
    EXPECT_EQ(read(kSent), "bytes");
    const std::string largest(kMaxBytes, 'x');
    EXPECT_EQ(read(sent({file("image", "a", largest)})), largest);
    EXPECT_EQ(read(sent({file("image", "a", "1")})), "1");
    expectLogged("");
}

TEST_F(Upload, IsMissingIfNoFileWasChosen) {
    for (const Request& request :
         {sent({field("note", "x")}), sent({file("image", "", "")}), sent({field("image", "text")}),
          sent({file("another", "a", "bytes")})}) {
        EXPECT_EQ(save(request), "is missing");
        EXPECT_EQ(read(request), "is missing");
        EXPECT_FALSE(std::filesystem::exists(kPath));
    }
    EXPECT_EQ(read(sent({file("image", "a", "")})), "is missing");
    expectLogged("");
    save(kSent);
    EXPECT_EQ(save(sent({field("image", "text")})), "is missing");
    EXPECT_EQ(stored(), "bytes") << "of the earlier upload";
}

TEST_F(Upload, IsRefusedIfItIsTooLarge) {
    const Request large = sent({file("image", "a", std::string(kMaxBytes + 1, 'x'))});
    for (const Request& request : {large, large.without("CONTENT_LENGTH")}) {
        EXPECT_EQ(save(request), "is too long");
        expectLogged(kTooLong);
        EXPECT_FALSE(std::filesystem::exists(kPath));
        EXPECT_EQ(read(request), "is too long");
        expectLogged(kTooLong);
    }
}

TEST_F(Upload, IsStoredUpToTheLimit) {
    const std::size_t overhead =
        std::stoul(*sent({file("image", "a", "")}).valueOf("CONTENT_LENGTH"));
    const auto body = [&](std::size_t bytes) {
        return sent({file("image", "a", std::string(bytes - overhead, 'x'))});
    };
    EXPECT_EQ(save(body(kMaxBytes)), "a");
    EXPECT_EQ(save(body(kMaxBytes + 1)), "is too long");
    expectLogged(kTooLong);
    const std::size_t ofField = std::stoul(*sent({field("note", "")}).valueOf("CONTENT_LENGTH"));
    EXPECT_EQ(save(sent({field("note", std::string(kMaxBytes - ofField, 'x'))})), "is missing");
    // Of a body in chunks, only the file counts.
    const Request chunked = body(kMaxBytes + overhead).without("CONTENT_LENGTH");
    EXPECT_EQ(save(chunked), "a");
    EXPECT_EQ(stored().size(), kMaxBytes);
    EXPECT_EQ(read(chunked), stored());
}

TEST_F(Upload, ReplacesAnEarlierFileOnlyIfItIsComplete) {
    save(kSent);
    const Request large = sent({file("image", "a", std::string(kMaxBytes + 1, 'x'))});
    for (const Request& request : {large, kSent.cutOffAfter(200), sent({field("image", "x")})}) {
        save(request);
        EXPECT_EQ(stored(), "bytes");
    }
    EXPECT_EQ(save(sent({file("image", "a", "new")})), "a");
    EXPECT_EQ(stored(), "new");
}

TEST_F(Upload, IsRefusedIfItIsMalformedOrCutOff) {
    for (const Request& request :
         {kSent.cutOffAfter(200), kSent.cutOffAfter(0), post("/servlet?p=upgrade"),
          kSent.body("bytes", "application/octet-stream"),
          kSent.body("bytes", "multipart/form-data; boundary=x")}) {
        EXPECT_EQ(save(request), "is incomplete");
        expectLogged(kMalformed);
        EXPECT_TRUE(std::filesystem::is_empty(kFolder));
        EXPECT_EQ(read(request), "is incomplete");
        expectLogged(kMalformed);
    }
}

TEST_F(Upload, IsRefusedIfItCannotBeStored) {
    std::filesystem::remove_all(kFolder);
    EXPECT_EQ(save(kSent), "could not be stored");
    expectLogged("No such file or directory");
    std::ofstream(kFolder) << "a file";
    EXPECT_EQ(save(kSent), "could not be stored");
    expectLogged("Not a directory");
}

TEST_F(Upload, IsRefusedIfAFolderHasItsPath) {
    std::filesystem::create_directory(kPath);
    EXPECT_EQ(save(kSent), "could not be stored");
    expectLogged("Is a directory");
    EXPECT_TRUE(std::filesystem::is_directory(kPath));
}

// The attack: a form that is both too large and malformed must not fill the log with another reason
// each time, nor leave a body behind that the next request would begin with.
TEST_F(Upload, IsRefusedForOneReasonOnly) {
    const Request large = sent({file("image", "a", std::string(kMaxBytes + 1, 'x'))});
    EXPECT_EQ(save(large.cutOffAfter(200)), "is too long") << "it is not received";
    expectLogged(kTooLong);
    EXPECT_EQ(read(large.cutOffAfter(200)), "is incomplete");
    expectLogged(kMalformed);
}
