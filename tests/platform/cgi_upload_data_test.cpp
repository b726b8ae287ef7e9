#include "cgi_list.h"
#include "cgi_upload_body.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <climits>

namespace {

using namespace kit::testing;

// An upload into memory of the exact size, so that a sanitizer detects writes beyond it.
struct Upload {
    Upload(const std::string& body, std::size_t size, const char* type = kUploadType)
        : buffer(size) {
        MemoryInput in(body);
        char none;
        list.reset(CGI_fileupload_data(nullptr, type, size != 0 ? buffer.data() : &none, size,
                                       in.stream(), &received));
    }
    std::string data() const {
        return std::string(buffer.data(), static_cast<std::size_t>(received));
    }

    std::vector<char> buffer;
    int received = -1;
    List list;
};

} // namespace

TEST(UploadsIntoMemory, PlaceTheFileAndAddItsField) {
    const Upload upload(textPart("a", "1") + filePart("f", "dir/x.bin", "data") + kUploadEnd, 100);
    EXPECT_EQ("data", upload.data());
    EXPECT_EQ("x.bin", valueOf(upload.list, "f"));
    EXPECT_EQ("1", valueOf(upload.list, "a"));
}

TEST(UploadsIntoMemory, MayFillTheBuffer) {
    for (std::size_t size : {0, 1, 4, 10000}) {
        const std::string data(size, 'd');
        const Upload upload(filePart("f", "x", data) + kUploadEnd, size);
        EXPECT_EQ(data, upload.data());
        EXPECT_EQ("x", valueOf(upload.list, "f"));
    }
}

TEST(UploadsIntoMemory, FailWhenLargerThanTheBuffer) {
    for (std::size_t size : {0, 1, 4, 9999}) {
        const Upload upload(
            textPart("a", "1") + filePart("f", "x", std::string(size + 1, 'd')) + kUploadEnd, size);
        EXPECT_EQ(0, upload.received);
        EXPECT_EQ("(none)", valueOf(upload.list, "f"));
        EXPECT_EQ("1", valueOf(upload.list, "a"));
    }
}

TEST(UploadsIntoMemory, PlaceOnlyTheFirstFile) {
    const Upload upload(filePart("e", "", "") + filePart("f", "x", "data") +
                            filePart("g", "y", std::string(100, 'd')) + kUploadEnd,
                        4);
    EXPECT_EQ("data", upload.data());
    EXPECT_EQ("x", valueOf(upload.list, "f"));
    EXPECT_EQ("(none)", valueOf(upload.list, "e"));
    EXPECT_EQ("(none)", valueOf(upload.list, "g"));
}

TEST(UploadsIntoMemory, PlaceNothingWhenCutShort) {
    const std::string body =
        textPart("a", "1") + filePart("f", "x", "data") + textPart("c", "2") + "--b--";
    for (std::size_t length = 0; length < body.size(); ++length) {
        const Upload upload(body.substr(0, length), 100);
        EXPECT_EQ(0, upload.received) << length;
        EXPECT_EQ("(none)", valueOf(upload.list, "f")) << length;
    }
    EXPECT_EQ("data", Upload(body, 100).data());
}

TEST(UploadsIntoMemory, PlaceNothingOfAnotherTypeOrWithoutAFile) {
    const std::string body = filePart("f", "x", "data") + kUploadEnd;
    EXPECT_EQ(0, Upload(body, 100, nullptr).received);
    EXPECT_EQ(0, Upload(body, 100, "text/plain").received);
    EXPECT_EQ(0, Upload(textPart("a", "1") + kUploadEnd, 100).received);
    EXPECT_EQ(0, Upload(filePart("f", "", "") + kUploadEnd, 100).received);
}

TEST(UploadsIntoMemory, AcceptNullForEveryArgument) {
    const std::string body = filePart("f", "x", "data") + kUploadEnd;
    List list(CGI_decode_query(nullptr, "a=1"));
    char buffer[100];
    int received = -1;
    MemoryInput in(body);
    EXPECT_EQ(list.get(),
              CGI_fileupload_data(list.get(), kUploadType, nullptr, 100, in.stream(), &received));
    EXPECT_EQ(0, received);
    EXPECT_EQ(body, in.unread());
    received = -1;
    EXPECT_EQ(list.get(),
              CGI_fileupload_data(list.get(), kUploadType, buffer, 100, nullptr, &received));
    EXPECT_EQ(0, received);
    EXPECT_EQ(list.get(),
              CGI_fileupload_data(list.get(), kUploadType, buffer, 100, in.stream(), nullptr));
    EXPECT_EQ("x", valueOf(list, "f"));
    EXPECT_EQ(nullptr, CGI_fileupload_data(nullptr, nullptr, nullptr, 0, nullptr, nullptr));
}

TEST(UploadsIntoMemory, AcceptASizeBeyondIntMax) {
    MemoryInput in(filePart("f", "x", "data") + kUploadEnd);
    char buffer[100];
    int received = -1;
    const List list(
        CGI_fileupload_data(nullptr, kUploadType, buffer, ULONG_MAX, in.stream(), &received));
    EXPECT_EQ(4, received);
}
