#include "temporary_folder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

pieces::TemporaryFolder::TemporaryFolder()
    : m_path(std::filesystem::temp_directory_path() / "pieces.XXXXXX") {
    if (mkdtemp(m_path.data()) == nullptr) {
        std::perror("pieces: cannot create a temporary folder");
        std::abort();
    }
}

pieces::TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void pieces::TemporaryFolder::write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
}
