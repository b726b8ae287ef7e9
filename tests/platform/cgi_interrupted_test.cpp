// Uploads during which a system call fails or the process is killed, at any system call.
#include "cgi_list.h"
#include "cgi_temporary_folder.h"
#include "cgi_upload_body.h"
#include "disk_calls.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace {

using namespace kit::testing;
using disk_calls::Calls;

using Names = std::set<std::string>;

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

// Uploads to "new.bin", which contains "old" before if the parameter is true.
class InterruptedUploads : public testing::TestWithParam<bool> {
protected:
    InterruptedUploads() { putOldFile(); }

    void putOldFile() const {
        std::filesystem::remove(m_folder.path("new.bin"));
        if (GetParam())
            m_folder.write("new.bin", "old");
    }
    std::string oldFile() const { return GetParam() ? "old" : "(none)"; }

    bool upload(const std::string& data) const {
        MemoryInput in(filePart("f", "x", data) + kUploadEnd);
        const List list(
            CGI_fileupload(nullptr, kUploadType, m_folder.path("new.bin").c_str(), in.stream()));
        return valueOf(list, "f") == "x";
    }

    // Returns the system calls of a successful upload of `data`.
    Calls calls(const std::string& data) const {
        Calls all = disk_calls::of([&] { EXPECT_TRUE(upload(data)); });
        putOldFile();
        return all;
    }

    // Returns the number of the call that puts the file in place. Before it there is the old file,
    // afterwards the new one, complete.
    static int placeOfRename(const Calls& calls) {
        return static_cast<int>(std::find(calls.begin(), calls.end(), "renameat") - calls.begin()) +
               1;
    }

    void expectStored(const std::string& data) const {
        EXPECT_TRUE(data == m_folder.read("new.bin"));
    }
    void expectNothingLeftBehind() const {
        EXPECT_EQ(m_folder.read("new.bin") != "(none)" ? Names{"new.bin"} : Names(),
                  m_folder.names());
    }

    const TemporaryFolder m_folder;
    const std::string m_data = std::string(50000, 'd') + "end"; // more than one write
};

} // namespace

INSTANTIATE_TEST_SUITE_P(WithoutAndWithAnOldFile, InterruptedUploads, testing::Bool());

TEST_P(InterruptedUploads, MakeTheseSystemCalls) {
    EXPECT_EQ((Calls{"openat", "openat", "write", "write", "write", "write", "fsync", "close",
                     "renameat", "fsync", "close"}),
              calls(m_data));
}

TEST_P(InterruptedUploads, LeaveOnlyTheOldOrTheNewFileWhenOneCallFails) {
    const Calls all = calls(m_data);
    const std::size_t descriptors = openDescriptors();
    for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EMFILE, ENOMEM})
        for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
            SCOPED_TRACE(all[static_cast<std::size_t>(number) - 1] + ", call " +
                         std::to_string(number) + ", error " + std::to_string(error));
            const bool inPlace = number > placeOfRename(all);
            bool stored = false;
            disk_calls::withFailure(number, error, [&] { stored = upload(m_data); });
            EXPECT_EQ(inPlace, stored);
            expectStored(inPlace ? m_data : oldFile());
            expectNothingLeftBehind();
            EXPECT_EQ(descriptors, openDescriptors());
            putOldFile();
        }
    EXPECT_TRUE(upload(m_data));
}

TEST_P(InterruptedUploads, LeaveOnlyTheOldOrTheNewFileWhenAllCallsFailFromSomeOneOn) {
    const Calls all = calls(m_data);
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        SCOPED_TRACE(all[static_cast<std::size_t>(number) - 1] + ", call " +
                     std::to_string(number));
        const bool inPlace = number > placeOfRename(all);
        bool stored = false;
        disk_calls::withFailuresFrom(number, EIO, [&] { stored = upload(m_data); });
        EXPECT_EQ(inPlace, stored);
        expectStored(inPlace ? m_data : oldFile());
        expectNothingLeftBehind();
        putOldFile();
    }
}

// The temporary file may be left behind, under its own name.
TEST_P(InterruptedUploads, LeaveTheOldOrTheNewFileWhenKilled) {
    const Calls all = calls(m_data);
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        SCOPED_TRACE(all[static_cast<std::size_t>(number) - 1] + ", call " +
                     std::to_string(number));
        ASSERT_TRUE(disk_calls::killedAt(number, [&] { upload(m_data); }));
        expectStored(number > placeOfRename(all) ? m_data : oldFile());
        Names left = m_folder.names();
        left.erase("new.bin");
        EXPECT_LE(left.size(), 1u);
        for (const std::string& name : left)
            EXPECT_EQ(0u, name.find(".upload-")) << name;

        const std::string next = "the next one";
        EXPECT_TRUE(upload(next));
        expectStored(next);
        for (const std::string& name : left)
            std::filesystem::remove(m_folder.path(name));
        expectNothingLeftBehind();
        putOldFile();
    }
    EXPECT_FALSE(disk_calls::killedAt(static_cast<int>(all.size()) + 1, [&] { upload(m_data); }));
    expectStored(m_data);
}
