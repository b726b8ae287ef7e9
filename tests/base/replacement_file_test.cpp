#include "base/replacement_file.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// A folder in which "target" holds "old".
class ReplacementFile : public ::testing::Test {
protected:
    ReplacementFile() {
        char name[] = "/tmp/replacement_file_test.XXXXXX";
        m_path = ::mkdtemp(name);
        m_folder = base::Descriptor(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        std::ofstream(m_path / "target") << "old";
    }
    ~ReplacementFile() override { fs::remove_all(m_path); }

    bool create(base::ReplacementFile& file, const char* name = "new", mode_t mode = 0600) const {
        return file.create(m_folder.get(), name, mode);
    }
    std::string textOf(const char* name) const {
        std::ostringstream text;
        text << std::ifstream(m_path / name).rdbuf();
        return text.str();
    }
    std::set<std::string> names() const {
        std::set<std::string> all;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_path))
            all.insert(entry.path().filename());
        return all;
    }

    using Names = std::set<std::string>;

    fs::path m_path;
    base::Descriptor m_folder;
};

TEST_F(ReplacementFile, TakesThePlaceOfTheTargetAtOnce) {
    base::ReplacementFile file;
    ASSERT_TRUE(create(file));
    EXPECT_TRUE(file.write("first, "));
    EXPECT_TRUE(file.write("second"));
    EXPECT_TRUE(file.sync());
    EXPECT_EQ(textOf("target"), "old");
    EXPECT_TRUE(file.putInPlace("target"));
    EXPECT_EQ(textOf("target"), "first, second");
    EXPECT_EQ(names(), Names{"target"});
}

TEST_F(ReplacementFile, StaysInPlaceWhenItIsDestroyed) {
    {
        base::ReplacementFile file;
        EXPECT_TRUE(create(file) && file.write("new") && file.sync() && file.close() &&
                    file.putInPlace("target"));
    }
    EXPECT_EQ(textOf("target"), "new");
}

TEST_F(ReplacementFile, IsRemovedUnlessPutInPlace) {
    {
        base::ReplacementFile file;
        EXPECT_TRUE(create(file) && file.write("new") && file.sync());
        EXPECT_EQ(names(), (Names{"new", "target"}));
    }
    EXPECT_EQ(names(), Names{"target"});
    EXPECT_EQ(textOf("target"), "old");
}

TEST_F(ReplacementFile, IsRemovedWhenTheTargetCannotBeReplaced) {
    fs::create_directory(m_path / "folder");
    {
        base::ReplacementFile file;
        EXPECT_TRUE(create(file) && file.sync());
        EXPECT_FALSE(file.putInPlace("folder"));
        EXPECT_EQ(errno, EISDIR);
    }
    EXPECT_EQ(names(), (Names{"folder", "target"}));
}

TEST_F(ReplacementFile, LeavesAloneWhatHasItsNameAlready) {
    std::ofstream(m_path / "taken") << "of another one";
    fs::create_symlink("target", m_path / "link");
    {
        base::ReplacementFile file;
        for (const char* name : {"taken", "link"}) {
            EXPECT_FALSE(create(file, name));
            EXPECT_EQ(errno, EEXIST);
        }
        EXPECT_TRUE(create(file, "free"));
    }
    EXPECT_EQ(names(), (Names{"link", "taken", "target"}));
    EXPECT_EQ(textOf("taken"), "of another one");
    EXPECT_EQ(textOf("target"), "old");
}

TEST_F(ReplacementFile, HasTheGivenMode) {
    base::ReplacementFile file;
    ASSERT_TRUE(create(file, "new", 0640));
    struct stat status {};
    ASSERT_EQ(::stat((m_path / "new").c_str(), &status), 0);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(status.st_mode & 07777, 0640 & ~mask);
}

TEST_F(ReplacementFile, ReportsAFolderThatIsMissing) {
    base::ReplacementFile file;
    EXPECT_FALSE(create(file, "missing/new"));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ReplacementFile, MayBeGivenByItsWholePath) {
    base::ReplacementFile file;
    EXPECT_TRUE(file.create(AT_FDCWD, m_path / "new", 0600) && file.write("new") && file.sync());
    EXPECT_TRUE(file.putInPlace((m_path / "target").c_str()));
    EXPECT_EQ(textOf("target"), "new");
    EXPECT_EQ(names(), Names{"target"});
}

} // namespace
