// How much memory decoding takes, and what happens when allocations fail. This program counts the
// allocations of the whole process, including its libraries, and can make them fail.
#include "cgi_list.h"
#include "cgi_temporary_folder.h"
#include "cgi_upload_body.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>

namespace {

using namespace kit::testing;

std::atomic<long> bytesInUse{0};
std::atomic<long> mostBytesInUse{0};
std::atomic<long> allocationsLeft{-1}; // negative: no limit

} // namespace

void* operator new(std::size_t size) {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0) {
        allocationsLeft = 0; // all later ones fail, too
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    const long used = bytesInUse += static_cast<long>(malloc_usable_size(memory));
    mostBytesInUse = std::max(mostBytesInUse.load(), used);
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr)
        bytesInUse -= static_cast<long>(malloc_usable_size(memory));
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

using Names = std::set<std::string>;

// A body that is never in memory as a whole: `head`, then `filler` repeated up to `size` bytes,
// then `tail`.
class GeneratedBody {
public:
    GeneratedBody(std::string head, std::string filler, std::size_t size, std::string tail)
        : m_head(std::move(head)), m_filler(std::move(filler)), m_left(size / m_filler.size()),
          m_tail(std::move(tail)) {
        m_stream.isReader = 1;
        m_stream.data = this;
        m_stream.fillBuffProc = [](FCGX_Stream* stream) {
            static_cast<GeneratedBody*>(stream->data)->fill();
        };
        offer(m_head);
    }
    GeneratedBody(const GeneratedBody&) = delete;
    GeneratedBody& operator=(const GeneratedBody&) = delete;

    FCGX_Stream* stream() { return &m_stream; }

private:
    void fill() {
        if (m_left > 0) {
            --m_left;
            offer(m_filler);
        } else if (!m_tailOffered) {
            m_tailOffered = true;
            offer(m_tail);
        } else {
            m_stream.isClosed = 1;
        }
    }
    void offer(std::string& text) {
        m_stream.rdNext = m_stream.stopUnget = reinterpret_cast<unsigned char*>(text.data());
        m_stream.stop = m_stream.rdNext + text.size();
    }

    std::string m_head;
    std::string m_filler;
    std::size_t m_left;
    std::string m_tail;
    bool m_tailOffered = false;
    FCGX_Stream m_stream{};
};

constexpr std::size_t k64Mebibytes = 64 * 1024 * 1024;
constexpr long kMemoryOfAnUpload = 96 * 1024;

std::string filler(const std::string& pattern) {
    std::string text;
    while (text.size() < 32768)
        text += pattern;
    return text;
}

// Returns the peak of the memory that `act` uses in addition to what was in use before.
template <class Act>
long memoryTaken(Act act) {
    const long before = bytesInUse;
    mostBytesInUse = before;
    act();
    return mostBytesInUse - before;
}

// Runs `act` on a thread with a small stack: 64 KiB, or the system's minimum, which is 128 KiB on
// 64-bit ARM.
template <class Act>
void runOnASmallStack(Act act) {
    const auto least = static_cast<std::size_t>(PTHREAD_STACK_MIN);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, std::max<std::size_t>(64 * 1024, least)));
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, &attributes,
                     [](void* argument) -> void* {
                         (*static_cast<Act*>(argument))();
                         return nullptr;
                     },
                     &act));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

const std::string kFileHead = "--b\r\nContent-Disposition: form-data; name=f; filename=x\r\n\r\n";

} // namespace

TEST(UploadMemory, DoesNotGrowWithTheFile) {
    const TemporaryFolder folder;
    GeneratedBody body(kFileHead, filler("\r\n--\r\n--a\rdata"), k64Mebibytes, "\r\n" + kUploadEnd);
    const std::string path = folder.path("new.bin");
    List list;
    runOnASmallStack([&] {
        EXPECT_LT(memoryTaken([&] {
                      list.reset(CGI_fileupload(nullptr, kUploadType, path.c_str(), body.stream()));
                  }),
                  kMemoryOfAnUpload);
    });
    EXPECT_EQ("x", valueOf(list, "f"));
    EXPECT_LT(k64Mebibytes - 100000, std::filesystem::file_size(path));
}

TEST(UploadMemory, DoesNotGrowWithTheRestOfTheBody) {
    const TemporaryFolder folder;
    const std::string path = folder.path("new.bin");
    const struct {
        const char* what;
        std::string head;
        std::string filler;
    } table[] = {
        {"preamble", "", "preamble\r\n"},
        {"ignored files", filePart("f", "x", "data"), filePart("g", "y", "data")},
        {"an ignored file", filePart("f", "x", "data") + kFileHead, "data"},
        {"files not chosen", "", filePart("f", "", "")},
        {"blanks behind a boundary", "--b", " \t"},
        {"headers", "--b\r\n", "X: y\r\n"},
        {"one text field", "--b\r\nContent-Disposition: form-data; name=a\r\n\r\n", "text"},
    };
    for (const auto& row : table) {
        GeneratedBody body(row.head, filler(row.filler), k64Mebibytes / 8, "");
        List list;
        EXPECT_LT(memoryTaken([&] {
                      list.reset(CGI_fileupload(nullptr, kUploadType, path.c_str(), body.stream()));
                  }),
                  2 * kMemoryOfAnUpload)
            << row.what;
        EXPECT_EQ(Names(), folder.names()) << row.what;
    }
}

// A list may hold a thousand values, and each may have 64 KiB, but not both at once.
TEST(UploadMemory, IsLimitedForTextFields) {
    GeneratedBody body("", textPart("a", std::string(60000, 't')), k64Mebibytes, kUploadEnd);
    List list;
    char buffer[1];
    EXPECT_LT(memoryTaken([&] {
                  list.reset(CGI_fileupload_data(nullptr, kUploadType, buffer, sizeof buffer,
                                                 body.stream(), nullptr));
              }),
              3 * 1024 * 1024);
}

TEST(FormMemory, IsNotAllocatedForAnAnnouncedLength) {
    MemoryInput in("a=1");
    EXPECT_LT(memoryTaken([&] {
                  EXPECT_EQ(nullptr, CGI_get_post(nullptr, nullptr, 1024 * 1024, in.stream()));
              }),
              8 * 1024);
}

TEST(ListMemory, DoesNotGrowWithLookUps) {
    const List list(CGI_decode_query(nullptr, "a=1&a=2&b=3"));
    valuesOf(list, "a");
    valuesOf(list, "b");
    const long before = bytesInUse;
    for (int i = 0; i < 1000; ++i) {
        CGI_lookup_all(list.get(), "a");
        CGI_lookup_all(list.get(), "b");
        CGI_lookup_all(list.get(), "c");
    }
    EXPECT_EQ(before, bytesInUse);
}

namespace {

// A body that is read without taking memory.
class FixedBody {
public:
    explicit FixedBody(const std::string& text) {
        auto* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
        m_stream.isReader = 1;
        m_stream.rdNext = m_stream.stopUnget = bytes;
        m_stream.stop = bytes + text.size();
        m_stream.fillBuffProc = [](FCGX_Stream* stream) { stream->isClosed = 1; };
    }

    FCGX_Stream* stream() { return &m_stream; }

private:
    FCGX_Stream m_stream{};
};

// Runs `act` with memory for no allocation, for one, for two and so on, until it succeeds and adds
// a field "f". Each time that it fails, it must leave the list as it was and keep no memory;
// `checkFailure` checks everything else.
template <class Act, class Check>
void expectHarmlessWithoutMemory(const char* before, Act act, Check checkFailure) {
    bool succeeded = false;
    int allocations = 0;
    for (; !succeeded && allocations < 1000; ++allocations) {
        List list(CGI_decode_query(nullptr, before));
        const long bytesBefore = bytesInUse;
        allocationsLeft = allocations;
        CGI_varlist* result = act(list.get());
        allocationsLeft = -1;
        succeeded = CGI_lookup(result, "f") != nullptr;
        if (succeeded && list == nullptr)
            list.reset(result);
        EXPECT_EQ(list.get(), result);
        if (succeeded)
            break;
        EXPECT_EQ(bytesBefore, bytesInUse);
        checkFailure();
    }
    EXPECT_TRUE(succeeded);
    EXPECT_GT(allocations, 0);
}

template <class Act>
void expectHarmlessWithoutMemory(Act act) {
    expectHarmlessWithoutMemory("", act, [] {});
    expectHarmlessWithoutMemory("old=1", act, [] {});
}

const std::string kLongPairs = "f=a_value_too_long_to_be_kept_inside_a_string&"
                               "a_name_too_long_to_be_kept_inside_a_string=1";
const std::string kUploadBody =
    textPart("a_name_too_long_to_be_kept_inside_a_string", "1") +
    filePart("f", "a_name_too_long_to_be_kept_inside_a_string", "data") + kUploadEnd;

} // namespace

TEST(WithoutMemory, QueriesAndCookiesAddNothing) {
    expectHarmlessWithoutMemory(
        [](CGI_varlist* list) { return CGI_decode_query(list, kLongPairs.c_str()); });
    expectHarmlessWithoutMemory(
        [](CGI_varlist* list) { return CGI_get_cookie(list, "f=1; a=\"2\""); });
}

TEST(WithoutMemory, FormsAddNothing) {
    expectHarmlessWithoutMemory([](CGI_varlist* list) {
        FixedBody in(kLongPairs);
        return CGI_get_post(list, nullptr, static_cast<int>(kLongPairs.size()), in.stream());
    });
}

TEST(WithoutMemory, UploadsAddAndStoreNothing) {
    const TemporaryFolder folder;
    folder.write("new.bin", "old");
    const std::string path = folder.path("new.bin");
    expectHarmlessWithoutMemory(
        "old=1",
        [&path](CGI_varlist* list) {
            FixedBody in(kUploadBody);
            return CGI_fileupload(list, kUploadType, path.c_str(), in.stream());
        },
        [&folder] {
            EXPECT_EQ(Names{"new.bin"}, folder.names());
            EXPECT_EQ("old", folder.read("new.bin"));
        });
    EXPECT_EQ("data", folder.read("new.bin"));
}

TEST(WithoutMemory, UploadsIntoMemoryPlaceNothing) {
    char buffer[100];
    int received = -1;
    expectHarmlessWithoutMemory(
        "",
        [&](CGI_varlist* list) {
            FixedBody in(kUploadBody);
            return CGI_fileupload_data(list, kUploadType, buffer, sizeof buffer, in.stream(),
                                       &received);
        },
        [&received] { EXPECT_EQ(0, received); });
    EXPECT_EQ(4, received);
}

TEST(WithoutMemory, LookUpsReturnNull) {
    const List list(CGI_decode_query(nullptr, "a=1&a=2"));
    for (int count = 0; count < 3; ++count) {
        allocationsLeft = count;
        char** all = CGI_lookup_all(list.get(), "a");
        allocationsLeft = -1;
        EXPECT_EQ(nullptr, all) << count;
    }
    EXPECT_EQ((Texts{"1", "2"}), valuesOf(list, "a"));
}
