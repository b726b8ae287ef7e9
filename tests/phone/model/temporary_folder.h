// A temporary folder, removed with its contents.
#ifndef TEMPORARY_FOLDER_H
#define TEMPORARY_FOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

class TemporaryFolder {
public:
    TemporaryFolder() {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("No temporary folder");
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string file(const std::string& name) const { return m_path + "/" + name; }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

private:
    std::string m_path = "/tmp/phone-model-XXXXXX";
};

inline std::string textOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeTextFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

#endif
