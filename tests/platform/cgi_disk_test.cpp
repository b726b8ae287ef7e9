// Which system calls uploads make for the disk, in which order, and what they do when one fails.
// This program replaces these system calls and can make them fail.
#include "cgi_list.h"
#include "cgi_temporary_folder.h"
#include "cgi_upload_body.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

using namespace kit::testing;

using Names = std::set<std::string>;

// Records the system calls, and says which of them fail.
struct Disk {
    Texts calls;             // "write", "fsync file", "fsync folder", "rename"
    std::string failingCall; // one of these
    int failingError = EIO;
    int failures = 1000000; // how many are still to come
    std::size_t mostBytesWritten = 1000000;

    bool fails(const std::string& call) {
        calls.push_back(call);
        if (call != failingCall || failures == 0)
            return false;
        --failures;
        errno = failingError;
        return true;
    }
};

Disk* disk = nullptr; // set while a test records calls

bool isFolder(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

extern "C" ssize_t write(int file, const void* data, size_t size) {
    if (disk != nullptr) {
        if (disk->fails("write"))
            return -1;
        size = std::min(size, disk->mostBytesWritten);
    }
    return syscall(SYS_write, file, data, size);
}

extern "C" int fsync(int file) {
    if (disk != nullptr && disk->fails(isFolder(file) ? "fsync folder" : "fsync file"))
        return -1;
    return static_cast<int>(syscall(SYS_fsync, file));
}

extern "C" int renameat(int oldFolder, const char* oldName, int newFolder,
                        const char* newName) noexcept {
    if (disk != nullptr && disk->fails("rename"))
        return -1;
    return static_cast<int>(syscall(SYS_renameat2, oldFolder, oldName, newFolder, newName, 0u));
}

namespace {

class UploadsToDisk : public testing::Test {
protected:
    UploadsToDisk() { m_folder.write("new.bin", "old"); }

    List upload(const std::string& data) {
        MemoryInput in(filePart("f", "x", data) + kUploadEnd);
        const std::string path = m_folder.path("new.bin");
        disk = &m_disk;
        List list(CGI_fileupload(nullptr, kUploadType, path.c_str(), in.stream()));
        disk = nullptr;
        return list;
    }

    TemporaryFolder m_folder;
    Disk m_disk;
};

} // namespace

TEST_F(UploadsToDisk, SyncTheFileBeforeTheRenameAndTheFolderAfterIt) {
    EXPECT_EQ("x", valueOf(upload("data"), "f"));
    EXPECT_EQ((Texts{"write", "fsync file", "rename", "fsync folder"}), m_disk.calls);
}

TEST_F(UploadsToDisk, WriteLargePiecesHoweverSmallTheyArrive) {
    upload(std::string(100000, '\r'));
    EXPECT_EQ(7, std::count(m_disk.calls.begin(), m_disk.calls.end(), "write"));
}

TEST_F(UploadsToDisk, LeaveOnlyTheOldFileWhenACallFails) {
    for (const char* call : {"write", "fsync file", "rename"}) {
        m_disk = Disk();
        m_disk.failingCall = call;
        EXPECT_EQ(nullptr, upload(std::string(50000, 'd'))) << call;
        EXPECT_EQ("old", m_folder.read("new.bin")) << call;
        EXPECT_EQ(Names{"new.bin"}, m_folder.names()) << call;
        EXPECT_EQ(call, m_disk.calls.back());
    }
}

TEST_F(UploadsToDisk, FailWhenNothingIsWritten) {
    m_disk.mostBytesWritten = 0;
    EXPECT_EQ(nullptr, upload("data"));
    EXPECT_EQ("old", m_folder.read("new.bin"));
}

// By then the file is in place, and complete.
TEST_F(UploadsToDisk, SucceedWhenTheFolderCannotBeSynced) {
    m_disk.failingCall = "fsync folder";
    EXPECT_EQ("x", valueOf(upload("data"), "f"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
}

TEST_F(UploadsToDisk, RepeatInterruptedCalls) {
    for (const char* call : {"write", "fsync file", "fsync folder"}) {
        m_disk = Disk();
        m_disk.failingCall = call;
        m_disk.failingError = EINTR;
        m_disk.failures = 3;
        const std::string data = call + std::string(50000, 'd');
        EXPECT_EQ("x", valueOf(upload(data), "f")) << call;
        EXPECT_EQ(data, m_folder.read("new.bin")) << call;
        EXPECT_EQ(0, m_disk.failures) << call;
    }
}

TEST_F(UploadsToDisk, ContinueAfterShortWrites) {
    std::string data;
    for (int i = 0; i < 20000; ++i)
        data += static_cast<char>(i % 251);
    m_disk.mostBytesWritten = 7;
    EXPECT_EQ("x", valueOf(upload(data), "f"));
    EXPECT_EQ(data, m_folder.read("new.bin"));
}
