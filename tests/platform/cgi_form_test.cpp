#include "cgi_list.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <climits>

namespace {

using namespace kit::testing;

constexpr int kMebibyte = 1024 * 1024;
constexpr const char* kFormType = "application/x-www-form-urlencoded";

List post(const char* type, int length, MemoryInput& in) {
    return List(CGI_get_post(nullptr, type, length, in.stream()));
}

List post(const std::string& body, int length) {
    MemoryInput in(body);
    return post(kFormType, length, in);
}

// Returns a field of `size` bytes, including its name and "=".
std::string fieldOfSize(int size) {
    return "a=" + std::string(static_cast<std::size_t>(size) - 2, 'x');
}

} // namespace

TEST(Forms, AreReadAndDecoded) {
    for (std::size_t pieceSize : {1, 2, 3, 8192}) {
        MemoryInput in("a=1+2&b=%26&a=3&c", pieceSize);
        const List list = post(kFormType, 17, in);
        EXPECT_EQ((Texts{"1 2", "3"}), valuesOf(list, "a"));
        EXPECT_EQ("&", valueOf(list, "b"));
        EXPECT_EQ("", valueOf(list, "c"));
        EXPECT_EQ("", in.unread());
    }
}

TEST(Forms, LeaveOutPairsWithARawOrEscapedZeroByte) {
    using namespace std::string_literals;
    const std::string body = "a=1\0&b\0=2&c=%00&d=4"s;
    const List list = post(body, static_cast<int>(body.size()));
    EXPECT_EQ("(none)", valueOf(list, "a"));
    EXPECT_EQ("(none)", valueOf(list, "b"));
    EXPECT_EQ("(none)", valueOf(list, "c"));
    EXPECT_EQ("4", valueOf(list, "d"));
}

TEST(Forms, AreRecognisedByTheirTypeOrAMissingOne) {
    for (const char* type :
         {"application/x-www-form-urlencoded", "APPLICATION/X-WWW-Form-UrlEncoded",
          "application/x-www-form-urlencoded; charset=utf-8",
          "application/x-www-form-urlencoded;charset=UTF-8",
          " application/x-www-form-urlencoded ; charset", "", " ",
          static_cast<const char*>(nullptr)}) {
        MemoryInput in("a=1");
        EXPECT_EQ("1", valueOf(post(type, 3, in), "a")) << (type != nullptr ? type : "(null)");
    }
}

TEST(Forms, LeaveABodyOfAnyOtherTypeInTheStream) {
    for (const char* type :
         {"multipart/form-data; boundary=b", "text/plain", "application/x-www-form-urlencode",
          "application/x-www-form-urlencoded2", "application/x-www-form-urlencoded charset=utf-8",
          "application", "x"}) {
        MemoryInput in("a=1");
        EXPECT_EQ(nullptr, post(type, 3, in)) << type;
        EXPECT_EQ("a=1", in.unread()) << type;
    }
}

TEST(Forms, AddNothingWhenTheBodyIsShorterOrLongerThanAnnounced) {
    for (int length : {4, 5, 100, kMebibyte, 2, 1, 0, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(nullptr, post("a=1", length)) << length;
    EXPECT_EQ(nullptr, post("", 1));
    EXPECT_EQ(nullptr, post("", 0));
}

TEST(Forms, MayHaveOneMebibyteAndStayInTheStreamIfLarger) {
    const List largest = post(fieldOfSize(kMebibyte), kMebibyte);
    EXPECT_EQ(static_cast<std::size_t>(kMebibyte) - 2, valueOf(largest, "a").size());

    const std::string tooLarge = fieldOfSize(kMebibyte + 1);
    EXPECT_EQ(nullptr, post(tooLarge, kMebibyte));
    MemoryInput in(tooLarge);
    EXPECT_EQ(nullptr, post(kFormType, kMebibyte + 1, in));
    EXPECT_EQ(tooLarge, in.unread());
}

TEST(Forms, AreReadWhateverTheSizeOfABufferIs) {
    for (int size = 4090; size <= 4100; ++size) {
        for (const int length : {size, 2 * size}) {
            EXPECT_EQ(fieldOfSize(length), "a=" + valueOf(post(fieldOfSize(length), length), "a"));
            EXPECT_EQ(nullptr, post(fieldOfSize(length), length + 1));
            EXPECT_EQ(nullptr, post(fieldOfSize(length), length - 1));
        }
    }
}

TEST(Forms, AreReadToOneByteBeyondTheAnnouncedLength) {
    const std::string body(100000, 'a');
    for (const int announced : {0, 1, 10}) {
        MemoryInput in(body);
        EXPECT_EQ(nullptr, post(kFormType, announced, in));
        const auto read = static_cast<std::size_t>(announced) + 1;
        EXPECT_EQ(body.size() - read, in.unread().size()) << announced;
    }
}

TEST(Forms, AreAddedToAnExistingListOrLeaveItAsItWas) {
    List list(CGI_decode_query(nullptr, "a=1"));
    MemoryInput good("a=2");
    EXPECT_EQ(list.get(), CGI_get_post(list.get(), kFormType, 3, good.stream()));
    MemoryInput tooShort("a=3");
    EXPECT_EQ(list.get(), CGI_get_post(list.get(), kFormType, 4, tooShort.stream()));
    MemoryInput otherType("a=4");
    EXPECT_EQ(list.get(), CGI_get_post(list.get(), "text/plain", 3, otherType.stream()));
    EXPECT_EQ(list.get(), CGI_get_post(list.get(), kFormType, 3, nullptr));
    EXPECT_EQ((Texts{"1", "2"}), valuesOf(list, "a"));
}

TEST(Forms, StopAtTheThousandthValue) {
    std::string body;
    for (int i = 0; i < 100000; ++i)
        body += "a=1&";
    EXPECT_EQ(1000u, valuesOf(post(body, static_cast<int>(body.size())), "a").size());
}

TEST(ReadBlock, ReturnsTheRawBytesOfTheBody) {
    const std::string body("a\0b\r\n%41+", 9);
    for (std::size_t pieceSize : {1, 4, 8192}) {
        MemoryInput in(body, pieceSize);
        char block[4] = {};
        EXPECT_EQ(4, CGI_readblock(block, sizeof block, in.stream()));
        EXPECT_EQ(body.substr(0, 4), std::string(block, 4));
        EXPECT_EQ(4, CGI_readblock(block, sizeof block, in.stream()));
        EXPECT_EQ(body.substr(4, 4), std::string(block, 4));
        EXPECT_EQ(1, CGI_readblock(block, sizeof block, in.stream()));
        EXPECT_EQ('+', block[0]);
        EXPECT_EQ(0, CGI_readblock(block, sizeof block, in.stream()));
        EXPECT_EQ(0, CGI_readblock(block, sizeof block, in.stream()));
    }
}

TEST(ReadBlock, AcceptsASizeBeyondIntMax) {
    MemoryInput in("abc");
    char block[3];
    EXPECT_EQ(3, CGI_readblock(block, ULONG_MAX, in.stream()));
    EXPECT_EQ("abc", std::string(block, 3));
}

TEST(ReadBlock, LeavesTheBodyInTheStreamForNullOrSizeZero) {
    MemoryInput in("abc");
    char block[3];
    EXPECT_EQ(0, CGI_readblock(block, 0, in.stream()));
    EXPECT_EQ(0, CGI_readblock(nullptr, 3, in.stream()));
    EXPECT_EQ(0, CGI_readblock(block, 3, nullptr));
    EXPECT_EQ("abc", in.unread());
}
