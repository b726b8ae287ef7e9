// A folder for one test, which is removed with its contents.
#ifndef CGI_TEMPORARY_FOLDER_H
#define CGI_TEMPORARY_FOLDER_H

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

class TemporaryFolder {
public:
    TemporaryFolder() : m_path(testing::TempDir() + "cgi_test.XXXXXX") {
        if (mkdtemp(m_path.data()) == nullptr)
            ADD_FAILURE() << "no folder at " << m_path;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return m_path; }
    std::string path(const std::string& name) const { return m_path + "/" + name; }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }
    // Returns the contents of the file, or "(none)".
    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        if (!file)
            return "(none)";
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }
    // Returns the names of all files, also hidden ones.
    std::set<std::string> names() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename());
        return names;
    }

private:
    std::string m_path;
};

#endif
