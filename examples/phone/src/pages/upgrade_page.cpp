#include "pages/upgrade_page.h"

#include "kit/text.h"
#include "kit/upload.h"

#include <cstdio>

namespace phone {
namespace {

constexpr const char* kImageField = "firmware";

// As in the configurations of the front servers: more than the largest image with its form.
constexpr std::size_t kMaxUploadBytes = 2 * kMaxFirmwarePayload;

// Maximum bytes shown of the client's file name.
constexpr std::size_t kShownNameBytes = 128;

// A plausible start-up time of a small phone.
constexpr std::chrono::seconds kRestartTime{8};

// Returns 0 if the task has begun; else the HTTP status of the failure, and nothing has changed.
int begin(Phone& phone, Task task) {
    if (phone.maintenance.progress().task != Task::none) {
        return 409;
    }
    if (task == Task::factoryReset && !phone.device.factoryReset().done()) {
        return 500;
    }
    // A completed reset is reported as such even if another task began meanwhile.
    const bool began = phone.maintenance.start(task, kRestartTime);
    return began || task == Task::factoryReset ? 0 : 409;
}

} // namespace

UpgradePage::UpgradePage(Phone& phone)
    : ActionsPage(phone), m_receivedPath(phone.files.firmwareImage + ".received") {
    m_actions.show(&UpgradePage::showForms);
    m_actions.onGet("download", &UpgradePage::sendImage);
    m_actions.onUpload("upload", &UpgradePage::upload);
    m_actions.on("reboot", &UpgradePage::reboot);
    m_actions.on("reset", &UpgradePage::reset);
}

void UpgradePage::showForms(kit::Request& request, kit::Response& response,
                            const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    show(request, response, "settings-upgrade.html",
         std::move(variables.set("firmware", m_phone.firmware.version())));
}

void UpgradePage::sendImage(kit::Request&, kit::Response& response, const kit::SignIn&) {
    response.download("firmware-" + m_phone.firmware.version() + ".img", "application/octet-stream",
                      imageOf(m_phone.firmware));
}

void UpgradePage::upload(kit::Request& request, kit::Response& response,
                         const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    ImageCheck check{ImageFault::unreadable, ""};
    if (const std::unique_lock<std::mutex> receiving(m_phone.receiving, std::try_to_lock);
        receiving) {
        std::remove(m_receivedPath.c_str()); // left behind by a power cut
        kit::saveUpload(request, kImageField, m_receivedPath, kMaxUploadBytes);
        // The token may be a field of the upload, so check it once that was received.
        if (!mayChange(request, response, signIn)) {
            std::remove(m_receivedPath.c_str());
            return;
        }
        check = m_phone.firmware.install(m_receivedPath);
        const bool none =
            check.fault == ImageFault::tooShort && request.parameter(kImageField) == "";
        variables.set("result", none ? "empty" : nameOf(check.fault));
    } else {
        variables.set("result", "busy");
    }
    const std::string_view name = request.parameter(kImageField).value_or("");
    variables.set("uploaded", kit::shortened(name, kShownNameBytes))
        .set("newVersion", check.version)
        .set("firmware", m_phone.firmware.version());
    response.status(check.fault == ImageFault::none ? 200 : 422);
    show(request, response, "settings-upgrade.html", std::move(variables));
}

void UpgradePage::reboot(kit::Request& request, kit::Response& response,
                         const kit::SignIn& signIn) {
    restart(request, response, signIn, Task::restart);
}

void UpgradePage::reset(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    if (request.isChecked("confirm")) {
        restart(request, response, signIn, Task::factoryReset);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    variables.set("result", "notConfirmed").set("firmware", m_phone.firmware.version());
    response.status(422);
    show(request, response, "settings-upgrade.html", std::move(variables));
}

void UpgradePage::restart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                          Task task) {
    if (const int failure = begin(m_phone, task)) {
        showMessage(request, response, signIn, failure, failure == 409 ? "busy" : "failed");
        return;
    }
    m_phone.statusWord.began(task);
    m_phone.firmware.start();
    if (task == Task::factoryReset) {
        m_phone.signIns.endOthers(request); // they signed in with the previous password
    }
    show(request, response, "restart.html",
         std::move(frame(request, signIn).set("asked", wordOf(task))));
}

} // namespace phone
