// A page that receives a picture, checks it and stores it.

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

namespace {

constexpr std::size_t kMaxMiB = 1; // of the whole form

class SamplePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        kit::Variables variables;
        if (request.isPost()) {
            const std::string problem = receive(request);
            response.status(problem.empty() ? 200 : 422);
            variables.set("problem", problem).set("isStored", problem.empty());
        }
        std::error_code error;
        const auto bytes = std::filesystem::file_size(pictureOf(request), error);
        if (!error) {
            variables.set("bytes", bytes);
        }
        variables.set("token", kit::formToken(request, response)).set("maxMiB", kMaxMiB);
        response.show("sample.html", std::move(variables));
    }

    // The folder data is beside the document root: a device has /phone/www and /phone/data.
    static std::string pictureOf(kit::Request& request) {
        const std::filesystem::path root = request.variable("DOCUMENT_ROOT").value_or("/phone/www");
        return root.parent_path() / "data/sample.png";
    }

    // Receives the picture under another name, and puts it in place once it was checked. Returns
    // what is wrong, or an empty text.
    std::string receive(kit::Request& request) {
        // One at a time: slow clients must not occupy all request threads.
        const std::unique_lock<std::mutex> receiving(m_receiving, std::try_to_lock);
        if (!receiving) {
            request.discardBody();
            return "Another upload is under way. Try again in a moment.";
        }
        const std::string picture = pictureOf(request);
        const std::string received = picture + ".received";
        const auto name = kit::saveUpload(request, "picture", received, kMaxMiB * 1024 * 1024);
        if (name.problem() == kit::Problem::TooLong) {
            return "The picture is larger than " + std::to_string(kMaxMiB) + " MiB.";
        }
        if (!name) {
            return std::string("The picture ") + kit::describe(name.problem()) + ".";
        }
        const std::string problem = problemOf(request, received);
        if (!problem.empty() || std::rename(received.c_str(), picture.c_str()) != 0) {
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
        std::ifstream(path, std::ios::binary)
            .read(begin.data(), static_cast<std::streamsize>(begin.size()));
        return begin == kSignature ? "" : "This file is not a PNG picture.";
    }

    std::mutex m_receiving;
};

} // namespace

// The name that servlet.xml uses.
KIT_SERVLET(createSamplePage, SamplePage)
