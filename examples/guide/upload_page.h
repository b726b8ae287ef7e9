// A page that receives a picture.
#ifndef UPLOAD_PAGE_H
#define UPLOAD_PAGE_H

#include <kit/forms.h>
#include <kit/plugin.h>
#include <kit/upload.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

class UploadPage final : public kit::Page {
public:
    // Stores the picture at `path`.
    explicit UploadPage(std::string path) : m_path(std::move(path)) {}

    static constexpr std::size_t kMaxBytes = 4 * 1024 * 1024; // of the whole form

private:
    void answer(kit::Request& request, kit::Response& response) override {
        kit::Variables variables;
        if (request.isPost()) {
            const std::string problem = receive(request);
            response.status(problem.empty() ? 200 : 422);
            variables.set("problem", problem).set("stored", problem.empty());
        }
        std::error_code none;
        const auto bytes = std::filesystem::file_size(m_path, none);
        variables.set("bytes", none ? 0 : bytes)
            .set("maxMiB", kMaxBytes / 1024 / 1024)
            .set("token", kit::formToken(request, response));
        response.show("upload.html", std::move(variables));
    }

    // Receives the picture into a file of its own, and puts it in place once it was checked.
    // Returns what is wrong, or an empty text.
    std::string receive(kit::Request& request) {
        // Slow clients must not occupy all request threads.
        const std::unique_lock<std::mutex> receiving(m_receiving, std::try_to_lock);
        if (!receiving) {
            request.discardBody();
            return "Another upload is under way. Try again in a moment.";
        }
        const std::string received = m_path + ".received";
        const auto name = kit::saveUpload(request, "picture", received, kMaxBytes);
        if (!name) {
            return std::string("The picture ") + kit::describe(name.problem()) + ".";
        }
        const std::string problem = problemOf(request, received);
        if (!problem.empty() || std::rename(received.c_str(), m_path.c_str()) != 0) {
            std::remove(received.c_str());
            return problem.empty() ? "The picture could not be stored." : problem;
        }
        return "";
    }

    static std::string problemOf(kit::Request& request, const std::string& path) {
        // The token is a field of the upload, so it is there once that was received.
        if (!kit::isFromForm(request)) {
            return "This form is out of date. Try again.";
        }
        constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
        std::string begin(kSignature.size(), '\0');
        std::ifstream(path, std::ios::binary).read(begin.data(), std::streamsize(begin.size()));
        return begin == kSignature ? "" : "This is no PNG picture.";
    }

    const std::string m_path;
    std::mutex m_receiving;
};

#endif
