#include "pages/upgrade_page.h"

#include "HttpRequest.h"
#include "short_text.h"

#include <cstdio>
#include <sys/stat.h>

namespace phone {
namespace {

const char* const kImageField = "firmware";

// What is shown of the client's name for its file.
constexpr std::size_t kShownNameLength = 128;

// 0 when there is no such file, too.
long sizeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

} // namespace

void UpgradePage::answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) {
    const std::string action = parameter(request, "q");
    const bool changes = action == "upload" || action == "reboot" || action == "reset";
    if (changes && !mayChange(request, response, signIn)) {
        return;
    }
    PageVariables variables = frameOf(signIn);
    if (action == "upload") {
        upload(request, variables);
    } else if (changes) {
        variables.add("asked", action);
        showTemplate(response, "restart.html", std::move(variables));
        return;
    }
    showTemplate(response, "upgrade.html", std::move(variables));
}

void UpgradePage::upload(HttpRequest& request, PageVariables& variables) {
    const long size = receiveImage(request);
    if (size > 0) {
        variables.add("uploaded", shortText(parameter(request, kImageField), kShownNameLength))
            .add("size", std::to_string(size));
    } else {
        variables.add("failed", "yes");
    }
}

long UpgradePage::receiveImage(HttpRequest& request) {
    const std::unique_lock<std::mutex> receiving(m_receiving, std::try_to_lock);
    if (!receiving) {
        return 0;
    }
    std::remove(m_receivedPath.c_str()); // what a loss of power may have left
    request.receiveUploadFile(m_receivedPath.c_str());
    const long size = sizeOf(m_receivedPath);
    // An empty file is what a browser sends when none was chosen. Without its field, the file came
    // under another name; the field alone may have come with the address or as a text.
    const bool isImage = size > 0 && request.getParameter(kImageField) != nullptr;
    if (isImage && std::rename(m_receivedPath.c_str(), m_imagePath.c_str()) == 0) {
        return size;
    }
    std::remove(m_receivedPath.c_str());
    return 0;
}

} // namespace phone
