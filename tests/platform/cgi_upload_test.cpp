#include "cgi_list.h"
#include "cgi_temporary_folder.h"
#include "cgi_upload_body.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <random>

namespace {

using namespace kit::testing;

using Names = std::set<std::string>;

// Uploads to "new.bin" in the test's own folder.
class Uploads : public testing::Test {
protected:
    List upload(const std::string& body, const char* type = kUploadType) {
        return uploadTo(m_folder.path("new.bin"), body, type);
    }
    static List uploadTo(const std::string& path, const std::string& body,
                         const char* type = kUploadType) {
        MemoryInput in(body);
        return List(CGI_fileupload(nullptr, type, path.c_str(), in.stream()));
    }

    void expectNothingStored(const std::string& story) const {
        EXPECT_EQ(Names(), m_folder.names()) << story;
    }

    TemporaryFolder m_folder;
};

// Runs the test as another user while it lives, since root may write everywhere.
class NotAsRoot {
public:
    NotAsRoot() : m_before(geteuid()) {
        if (m_before == 0) {
            EXPECT_EQ(0, seteuid(kNobody));
        }
    }
    ~NotAsRoot() { EXPECT_EQ(0, seteuid(m_before)); }
    NotAsRoot(const NotAsRoot&) = delete;
    NotAsRoot& operator=(const NotAsRoot&) = delete;

private:
    static constexpr uid_t kNobody = 65534;

    uid_t m_before;
};

// Imitates a full disk: no file may grow beyond `size` bytes, and the last write before that is a
// short one.
class FullDisk {
public:
    explicit FullDisk(rlim_t size) {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit small{size, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_limit{};
    void (*m_handler)(int);
};

std::set<int> openDescriptors() {
    std::set<int> open;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        if (fcntl(descriptor, F_GETFD) >= 0)
            open.insert(descriptor);
    return open;
}

// A body that calls `look` before each of its pieces arrives. Only one at a time may exist.
class WatchedBody {
public:
    WatchedBody(std::string body, std::function<void()> look)
        : m_in(std::move(body), 1000), m_look(std::move(look)), m_fill(stream()->fillBuffProc) {
        current = this;
        stream()->fillBuffProc = [](FCGX_Stream* stream) {
            current->m_look();
            current->m_fill(stream);
        };
    }

    FCGX_Stream* stream() { return m_in.stream(); }

private:
    static inline WatchedBody* current = nullptr;

    MemoryInput m_in;
    std::function<void()> m_look;
    void (*m_fill)(FCGX_Stream*);
};

} // namespace

TEST_F(Uploads, StoreTheFileAndAddItsField) {
    const List list = upload(textPart("before", "1") + filePart("f", "x.bin", "data") +
                             textPart("after", "2") + kUploadEnd);
    EXPECT_EQ("data", m_folder.read("new.bin"));
    EXPECT_EQ(Names{"new.bin"}, m_folder.names());
    EXPECT_EQ("x.bin", valueOf(list, "f"));
    EXPECT_EQ("1", valueOf(list, "before"));
    EXPECT_EQ("2", valueOf(list, "after"));
}

TEST_F(Uploads, StoreEveryByteOfLargeAndSmallFiles) {
    std::minstd_rand random(1);
    for (std::size_t size : {0, 1, 4095, 4096, 4097, 16383, 16384, 16385, 100000, 1000000}) {
        std::string data;
        for (std::size_t i = 0; i < size; ++i)
            data += static_cast<char>(random() >> 8);
        const List list = upload(filePart("f", "x", data) + kUploadEnd);
        EXPECT_EQ("x", valueOf(list, "f"));
        EXPECT_TRUE(data == m_folder.read("new.bin")) << size;
    }
}

TEST_F(Uploads, ReplaceAnExistingFile) {
    m_folder.write("new.bin", "an older and longer one");
    EXPECT_EQ("x", valueOf(upload(filePart("f", "x", "data") + kUploadEnd), "f"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
    EXPECT_EQ(Names{"new.bin"}, m_folder.names());
}

TEST_F(Uploads, CreateFilesThatAllMayReadUnlessTheUmaskForbidsIt) {
    for (mode_t mask : {0022, 0077}) {
        const mode_t before = umask(mask);
        upload(filePart("f", "x", "data") + kUploadEnd);
        umask(before);
        struct stat status {};
        ASSERT_EQ(0, stat(m_folder.path("new.bin").c_str(), &status));
        EXPECT_EQ(static_cast<mode_t>(0644) & ~mask, status.st_mode & 0777);
    }
}

TEST_F(Uploads, AcceptAnyPathOfAFile) {
    ASSERT_EQ(0, chdir(m_folder.path().c_str()));
    std::filesystem::create_directory("sub");
    for (const char* path : {"plain", "./dot", "sub/deep", "sub//slashes"}) {
        EXPECT_EQ("x", valueOf(uploadTo(path, filePart("f", "x", path) + kUploadEnd), "f"));
        EXPECT_EQ(path, m_folder.read(path));
    }
    ASSERT_EQ(0, chdir("/"));
}

TEST_F(Uploads, ReportTheFileNameWithoutItsFolders) {
    const struct {
        const char* fileName;
        const char* value;
    } table[] = {
        {"x.txt", "x.txt"},
        {"/home/me/x.txt", "x.txt"},
        {"C:\\dir\\x.txt", "x.txt"},
        {"\\\\server\\share/x.txt", "x.txt"},
        {"../../etc/passwd", "passwd"},
        {"dir/", ""},
        {".", ""},
        {"..", ""},
        {"dir\\..", ""},
        {"...", "..."},
        {".hidden", ".hidden"},
        {"a%22b.txt", "a\"b.txt"},
        {"a\\\"b.txt", "a\"b.txt"},
        {"%C3%A4.txt", "\xc3\xa4.txt"},
        {"\xc3\xa4.txt", "\xc3\xa4.txt"},
        {"..%2F..%5cx", "x"},
        {"100%.txt", "100%.txt"},
        {"a+b c", "a+b c"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.value, valueOf(upload(filePart("f", row.fileName, "data") + kUploadEnd), "f"))
            << row.fileName;
        EXPECT_EQ(Names{"new.bin"}, m_folder.names()) << row.fileName;
    }
}

TEST_F(Uploads, StoreTheFirstFileAndIgnoreLaterOnes) {
    const List list = upload(filePart("f", "first", "1") + filePart("f", "second", "2") +
                             filePart("g", "third", std::string(100000, '3')) + kUploadEnd);
    EXPECT_EQ("1", m_folder.read("new.bin"));
    EXPECT_EQ((Texts{"first"}), valuesOf(list, "f"));
    EXPECT_EQ("(none)", valueOf(list, "g"));
}

TEST_F(Uploads, StoreNothingWhenNoFileIsChosen) {
    const List list = upload(textPart("a", "1") + filePart("f", "", "") + kUploadEnd);
    EXPECT_EQ("1", valueOf(list, "a"));
    EXPECT_EQ("(none)", valueOf(list, "f"));
    EXPECT_EQ(nullptr, upload(kUploadEnd));
    expectNothingStored("no file");
}

TEST_F(Uploads, ReportWhyTheyFailed) {
    const auto errorOf = [this](const std::string& body, const std::string& path) {
        MemoryInput in(body, 1000);
        errno = -1;
        CGI_varlist* list =
            CGI_fileupload(nullptr, kUploadType, m_folder.path(path).c_str(), in.stream());
        const int error = errno;
        CGI_free_varlist(list);
        return error;
    };
    const std::string file = filePart("f", "x", "data");
    EXPECT_EQ(0, errorOf(file + kUploadEnd, "new.bin"));
    EXPECT_EQ(0, errorOf(filePart("f", "", "") + kUploadEnd, "new.bin"));
    EXPECT_EQ(EBADMSG, errorOf(file, "new.bin"));
    EXPECT_EQ(EBADMSG, errorOf("nonsense", "new.bin"));
    EXPECT_EQ(EBADMSG, errorOf(textPart("a", std::string(65537, 't')) + kUploadEnd, "new.bin"));
    EXPECT_EQ(ENOENT, errorOf(file + kUploadEnd, "none/new.bin"));
    EXPECT_EQ(EISDIR, errorOf(file + kUploadEnd, ""));
    const FullDisk disk(0);
    EXPECT_EQ(EFBIG, errorOf(file + kUploadEnd, "new.bin")) << "as write(2) has it";
}

TEST_F(Uploads, StoreTheSecondFileWhenTheFirstWasNotChosen) {
    const List list = upload(filePart("f", "", "") + filePart("g", "x", "data") + kUploadEnd);
    EXPECT_EQ("(none)", valueOf(list, "f"));
    EXPECT_EQ("x", valueOf(list, "g"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
}

TEST_F(Uploads, StoreAFileWithoutANameIfItHasData) {
    EXPECT_EQ("", valueOf(upload(filePart("f", "", "data") + kUploadEnd), "f"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
}

TEST_F(Uploads, DecodeNamesButNotTheTextOfFields) {
    const List list = upload(textPart("a%22b", "%41+\r\n") + textPart("a+b", "") + kUploadEnd);
    EXPECT_EQ("%41+\r\n", valueOf(list, "a\"b"));
    EXPECT_EQ("", valueOf(list, "a+b"));
}

TEST_F(Uploads, LeaveOutTextFieldsWithoutNameOrWithAZeroByte) {
    const List list =
        upload(textPart("", "1") + textPart("a%00", "2") + textPart("a", std::string("3\0", 2)) +
               textPart("a", "4") + kUploadEnd);
    EXPECT_EQ((Texts{"4"}), valuesOf(list, "a"));
}

TEST_F(Uploads, AcceptTextFieldsOf64KibibytesAndFailWithLargerOnes) {
    const std::string file = filePart("f", "x", "data");
    const std::string largest(65536, 't');
    EXPECT_EQ(largest, valueOf(upload(file + textPart("a", largest) + kUploadEnd), "a"));
    EXPECT_EQ("data", m_folder.read("new.bin"));

    m_folder.write("new.bin", "old");
    EXPECT_EQ(nullptr, upload(file + textPart("a", largest + "t") + kUploadEnd));
    EXPECT_EQ("old", m_folder.read("new.bin"));
}

TEST_F(Uploads, FailWithMoreThanAMebibyteOfText) {
    const std::string field = textPart("a", std::string(65535, 't')); // a name of one byte
    std::string body = filePart("f", "x", "data");
    for (int i = 0; i < 16; ++i)
        body += field;
    const List largest = upload(body + kUploadEnd);
    EXPECT_EQ("x", valueOf(largest, "f"));
    EXPECT_EQ(16u, valuesOf(largest, "a").size());
    const List tooLarge = upload(body + textPart("a", "") + kUploadEnd);
    EXPECT_EQ("(none)", valueOf(tooLarge, "f"));
}

TEST_F(Uploads, KeepTheTextFieldsThatArrivedBeforeAFailure) {
    const List list = upload(textPart("a", "1") + filePart("f", "x", "data") + textPart("b", "2"));
    EXPECT_EQ("1", valueOf(list, "a"));
    EXPECT_EQ("(none)", valueOf(list, "f"));
}

TEST_F(Uploads, AreAddedToAnExistingListOrLeaveItAsItWas) {
    List list(CGI_decode_query(nullptr, "f=query"));
    MemoryInput in(filePart("f", "x", "data") + kUploadEnd);
    const std::string path = m_folder.path("new.bin");
    EXPECT_EQ(list.get(), CGI_fileupload(list.get(), kUploadType, path.c_str(), in.stream()));
    MemoryInput cut(filePart("f", "x", "data"));
    EXPECT_EQ(list.get(), CGI_fileupload(list.get(), kUploadType, path.c_str(), cut.stream()));
    EXPECT_EQ((Texts{"query", "x"}), valuesOf(list, "f"));
}

TEST_F(Uploads, LeaveAListToWhichMoreCanBeAdded) {
    List list(CGI_decode_query(nullptr, "a=1"));
    const auto add = [&](const std::string& body) {
        MemoryInput in(body);
        list.reset(CGI_fileupload(list.release(), kUploadType, m_folder.path("new.bin").c_str(),
                                  in.stream()));
    };
    add(textPart("a", "2") + textPart("a", "3") + filePart("f", "x", "data") + kUploadEnd);
    list.reset(CGI_decode_query(list.release(), "a=4"));
    add(textPart("a", "5") + textPart("a", "6") + filePart("f", "y", "data") + kUploadEnd);
    list.reset(CGI_decode_query(list.release(), "a=7&a=8"));
    EXPECT_EQ((Texts{"1", "2", "3", "4", "5", "6", "7", "8"}), valuesOf(list, "a"));
    EXPECT_EQ((Texts{"x", "y"}), valuesOf(list, "f"));
}

TEST_F(Uploads, StoreNothingWhoseFieldTheListCannotHold) {
    std::string query;
    for (int i = 0; i < 1000; ++i)
        query += "a=1&";
    List full(CGI_decode_query(nullptr, query.c_str()));
    MemoryInput in(filePart("f", "x", "data") + kUploadEnd);
    CGI_fileupload(full.get(), kUploadType, m_folder.path("new.bin").c_str(), in.stream());
    EXPECT_EQ("(none)", valueOf(full, "f"));
    expectNothingStored("a full list");

    std::string fields;
    for (int i = 0; i < 1000; ++i)
        fields += textPart("a", "1");
    const List filled = upload(filePart("f", "x", "data") + fields + kUploadEnd);
    EXPECT_EQ(1000u, valuesOf(filled, "a").size());
    EXPECT_EQ("(none)", valueOf(filled, "f"));
    expectNothingStored("a list filled by text fields");

    for (const char* name : {"", "%00", "f%00"})
        EXPECT_EQ(nullptr, upload(filePart(name, "x", "data") + kUploadEnd)) << name;
    EXPECT_EQ(nullptr, upload(filePart("f", "x%00.txt", "data") + kUploadEnd));
    EXPECT_EQ(nullptr, upload(filePart("", "", "data") + kUploadEnd));
    expectNothingStored("a bad name");
}

TEST_F(Uploads, AddTextFieldsUntilTheListIsFull) {
    std::string body;
    for (int i = 0; i < 1500; ++i)
        body += textPart("a", std::to_string(i));
    EXPECT_EQ(1000u, valuesOf(upload(body + kUploadEnd), "a").size());
}

TEST_F(Uploads, WorkWithBoundariesOfAnyLength) {
    for (std::size_t length : {1, 70, 71, 4091, 4096, 20000}) {
        const std::string boundary(length, '-');
        const std::string type = "multipart/form-data; boundary=\"" + boundary + "\"";
        const std::string data = "\r\n--" + boundary.substr(1) + "\r\n";
        const std::string body = "--" + boundary + "\r\n" +
                                 filePart("f", "x", data).substr(std::string("--b\r\n").size()) +
                                 "--" + boundary + "--\r\n";
        EXPECT_EQ("x", valueOf(upload(body, type.c_str()), "f")) << length;
        EXPECT_EQ(data, m_folder.read("new.bin")) << length;
    }
}

TEST_F(Uploads, LeaveABodyOfAnyOtherTypeInTheStream) {
    const std::string body = filePart("f", "x", "data") + kUploadEnd;
    for (const char* type :
         {static_cast<const char*>(nullptr), "", "text/plain", "multipart/form-data",
          "multipart/form-data; boundary=", "application/x-www-form-urlencoded"}) {
        MemoryInput in(body);
        EXPECT_EQ(nullptr,
                  CGI_fileupload(nullptr, type, m_folder.path("new.bin").c_str(), in.stream()));
        EXPECT_EQ(body, in.unread());
    }
    expectNothingStored("another type");
}

TEST_F(Uploads, AcceptNullForEveryArgument) {
    List list(CGI_decode_query(nullptr, "a=1"));
    MemoryInput in(filePart("f", "x", "data") + kUploadEnd);
    const std::string path = m_folder.path("new.bin");
    EXPECT_EQ(list.get(), CGI_fileupload(list.get(), kUploadType, nullptr, in.stream()));
    EXPECT_EQ(list.get(), CGI_fileupload(list.get(), kUploadType, path.c_str(), nullptr));
    EXPECT_EQ(list.get(), CGI_fileupload(list.get(), nullptr, path.c_str(), in.stream()));
    EXPECT_EQ(nullptr, CGI_fileupload(nullptr, nullptr, nullptr, nullptr));
    expectNothingStored("null");
}

TEST_F(Uploads, LeaveOnlyTheOldFileWhenCutShort) {
    const std::string body = "preamble\r\n" + textPart("a", "1") + filePart("f", "x", "data") +
                             filePart("g", "y", "more") + textPart("c", "2") + "--b--";
    m_folder.write("new.bin", "old");
    for (std::size_t length = 0; length < body.size(); ++length) {
        EXPECT_EQ("(none)", valueOf(upload(body.substr(0, length)), "f")) << length;
        EXPECT_EQ("old", m_folder.read("new.bin")) << length;
        ASSERT_EQ(Names{"new.bin"}, m_folder.names()) << length;
    }
    EXPECT_EQ("x", valueOf(upload(body), "f"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
}

TEST_F(Uploads, StoreNothingWhenCutShort) {
    const std::string body = filePart("f", "x", "data") + "--b--";
    for (std::size_t length = 0; length < body.size(); ++length) {
        EXPECT_EQ(nullptr, upload(body.substr(0, length))) << length;
        expectNothingStored(std::to_string(length));
    }
}

TEST_F(Uploads, LeaveOnlyTheOldFileWhenTheBodyIsBad) {
    m_folder.write("new.bin", "old");
    const std::string file = filePart("f", "x", std::string(50000, 'd'));
    for (const std::string& rest :
         {std::string("--bx\r\n"), std::string("--b\r\nnonsense\r\n\r\n\r\n"),
          "--b\r\n" + std::string(20000, 'h') + "\r\n\r\n\r\n",
          std::string("--b\r\nContent-Type: text/plain\r\n\r\n\r\n")}) {
        EXPECT_EQ(nullptr, upload(file + rest + kUploadEnd));
        EXPECT_EQ("old", m_folder.read("new.bin"));
        EXPECT_EQ(Names{"new.bin"}, m_folder.names());
    }
}

TEST_F(Uploads, LeaveOnlyTheOldFileWhenTheDiskIsFull) {
    m_folder.write("new.bin", "old");
    const std::string data(100000, 'd');
    for (rlim_t room : {0, 1, 16384, 20000, 99999}) {
        List list;
        {
            const FullDisk disk(room);
            list = upload(textPart("a", "1") + filePart("f", "x", data) + kUploadEnd);
        }
        EXPECT_EQ("1", valueOf(list, "a"));
        EXPECT_EQ("(none)", valueOf(list, "f")) << room;
        EXPECT_EQ("old", m_folder.read("new.bin")) << room;
        EXPECT_EQ(Names{"new.bin"}, m_folder.names()) << room;
    }
    const FullDisk disk(100000);
    EXPECT_EQ("x", valueOf(upload(filePart("f", "x", data) + kUploadEnd), "f"));
}

TEST_F(Uploads, StoreNothingAtAnImpossiblePath) {
    const std::string body = filePart("f", "x", "data") + kUploadEnd;
    std::filesystem::create_directory(m_folder.path("sub"));
    m_folder.write("file", "old");
    for (const std::string& path :
         {std::string(), m_folder.path("missing/new.bin"), m_folder.path("file/new.bin"),
          m_folder.path("sub"), m_folder.path("sub/"), m_folder.path("sub/."),
          m_folder.path("sub/.."), m_folder.path(std::string(300, 'n')),
          std::string("/proc/new.bin")}) {
        EXPECT_EQ(nullptr, uploadTo(path, body)) << path;
        EXPECT_EQ((Names{"file", "sub"}), m_folder.names()) << path;
        EXPECT_TRUE(std::filesystem::is_empty(m_folder.path("sub"))) << path;
    }
    EXPECT_EQ("old", m_folder.read("file"));
}

TEST_F(Uploads, StoreNothingInAReadOnlyFolder) {
    m_folder.write("new.bin", "old");
    ASSERT_EQ(0, chmod(m_folder.path().c_str(), 0555));
    {
        const NotAsRoot user;
        EXPECT_EQ(nullptr, upload(filePart("f", "x", "data") + kUploadEnd));
    }
    EXPECT_EQ("old", m_folder.read("new.bin"));
    EXPECT_EQ(Names{"new.bin"}, m_folder.names());
    ASSERT_EQ(0, chmod(m_folder.path().c_str(), 0755));
}

TEST_F(Uploads, SucceedBesideFilesThatAPowerCutLeftBehind) {
    // The first name that the next upload tries, for any descriptor of the folder.
    Names leftBehind;
    for (int descriptor = 0; descriptor < 64; ++descriptor)
        leftBehind.insert(".upload-" + std::to_string(getpid()) + "-" + std::to_string(descriptor) +
                          "-0");
    for (const std::string& name : leftBehind)
        m_folder.write(name, "left behind");
    EXPECT_EQ("x", valueOf(upload(filePart("f", "x", "data") + kUploadEnd), "f"));
    EXPECT_EQ("data", m_folder.read("new.bin"));
    EXPECT_EQ("left behind", m_folder.read(*leftBehind.begin()));
    leftBehind.insert("new.bin");
    EXPECT_EQ(leftBehind, m_folder.names());
}

TEST_F(Uploads, AppearAtTheirPathOnlyWhenComplete) {
    Names seen;
    WatchedBody body(filePart("f", "x", std::string(50000, 'd')) + kUploadEnd, [&] {
        for (const std::string& name : m_folder.names())
            seen.insert(name.substr(0, 7));
    });
    const List list(
        CGI_fileupload(nullptr, kUploadType, m_folder.path("new.bin").c_str(), body.stream()));
    EXPECT_EQ("x", valueOf(list, "f"));
    EXPECT_EQ(Names{".upload"}, seen);
    EXPECT_EQ(Names{"new.bin"}, m_folder.names());
}

TEST_F(Uploads, CloseTheirDescriptorsOnExec) {
    const std::set<int> before = openDescriptors();
    std::set<int> opened;
    WatchedBody body(filePart("f", "x", std::string(50000, 'd')) + kUploadEnd, [&] {
        for (int descriptor : openDescriptors())
            if (before.count(descriptor) == 0) {
                opened.insert(descriptor);
                EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD));
            }
    });
    const List list(
        CGI_fileupload(nullptr, kUploadType, m_folder.path("new.bin").c_str(), body.stream()));
    EXPECT_EQ(2u, opened.size()) << "the folder and the file";
}

TEST_F(Uploads, CloseEveryDescriptorThatTheyOpen) {
    const std::set<int> before = openDescriptors();
    upload(filePart("f", "x", "data") + kUploadEnd);
    upload(filePart("f", "x", "data"));
    uploadTo(m_folder.path(), filePart("f", "x", "data") + kUploadEnd);
    {
        const FullDisk disk(0);
        upload(filePart("f", "x", "data") + kUploadEnd);
    }
    EXPECT_EQ(before, openDescriptors());
}
