// A page that lists what is in a folder.
#ifndef FILES_PAGE_H
#define FILES_PAGE_H

#include <kit/plugin.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

class FilesPage final : public kit::Page {
public:
    explicit FilesPage(std::string folder) : m_folder(std::move(folder)) {}

private:
    void answer(kit::Request&, kit::Response& response) override {
        std::error_code none; // an absent folder is shown as an empty one
        const std::filesystem::directory_iterator files(m_folder, none);
        response.show("files.html",
                      kit::Variables().set("folder", m_folder).rows("files", files, fileRow));
    }

    static kit::Variables fileRow(const std::filesystem::directory_entry& file) {
        return kit::Variables()
            .set("name", file.path().filename().string())
            .set("isFolder", file.is_directory());
    }

    const std::string m_folder;
};

#endif
