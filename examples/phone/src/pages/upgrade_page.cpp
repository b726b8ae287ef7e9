#include "pages/upgrade_page.h"

#include "model/journal.h"

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

// Returns the waiting version that the page named; empty if there was none.
std::string_view namedVersion(kit::Request& request) {
    return request.parameter("version").value_or("");
}

bool isStart(Task task) {
    return task == Task::restart || task == Task::factoryReset;
}

// Returns 0 if the task has begun; else the HTTP status of the failure, and nothing has changed.
int begin(Phone& phone, Task task) {
    if (phone.maintenance.progress().task != Task::none) {
        return 409;
    }
    if (task == Task::factoryReset && !phone.device.factoryReset().done()) {
        return 500;
    }
    if (task == Task::factoryReset) {
        phone.network.forget();
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
    m_actions.onGet("restarting", &UpgradePage::showRestart);
    m_actions.onUpload("upload", &UpgradePage::upload);
    m_actions.on("discard", &UpgradePage::discard);
    m_actions.on("reboot", &UpgradePage::reboot);
    m_actions.on("reset", &UpgradePage::reset);
}

void UpgradePage::showForms(kit::Request& request, kit::Response& response,
                            const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    showPage(request, response, std::move(variables));
}

void UpgradePage::showPage(kit::Request& request, kit::Response& response,
                           kit::Variables variables) const {
    variables.set("firmware", m_phone.firmware.version())
        .set("restartSeconds", kRestartTime.count())
        .set("callUnderWay", m_phone.desk.view().isCallUnderWay());
    if (const std::string waiting = m_phone.firmware.waitingVersion(); !waiting.empty()) {
        variables.set("waitingVersion", waiting);
    }
    show(request, response, "settings-upgrade.html", std::move(variables));
}

void UpgradePage::sendImage(kit::Request&, kit::Response& response, const kit::SignIn&) {
    response.download("firmware-" + m_phone.firmware.version() + ".img", "application/octet-stream",
                      imageOf(m_phone.firmware));
}

void UpgradePage::upload(kit::Request& request, kit::Response& response,
                         const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    std::string result = "busy";
    if (const std::unique_lock<std::mutex> receiving(m_phone.receiving, std::try_to_lock);
        receiving) {
        std::remove(m_receivedPath.c_str()); // left behind by a power cut
        kit::saveUpload(request, kImageField, m_receivedPath, kMaxUploadBytes);
        // The token may be a field of the upload, so check it once that was received.
        if (!mayChange(request, response, signIn)) {
            std::remove(m_receivedPath.c_str());
            return;
        }
        result = install(request, variables);
    }
    const std::string_view name = request.parameter(kImageField).value_or("");
    variables.set("result", result).set("uploaded", kit::shortened(name, kShownNameBytes));
    response.status(result == nameOf(ImageFault::none) ? 200 : 422);
    showPage(request, response, std::move(variables));
}

// Installs the image that was received if the form confirmed that. Returns what the page shows.
std::string UpgradePage::install(kit::Request& request, kit::Variables& variables) {
    const bool isTicked = request.isChecked("confirm");
    // An upload that failed may lack the confirmation, too, so a fault comes first.
    const ImageCheck check =
        isTicked ? m_phone.firmware.install(m_receivedPath) : checkImage(m_receivedPath);
    if (!isTicked) {
        std::remove(m_receivedPath.c_str());
    }
    if (check.fault != ImageFault::none) {
        const bool isEmpty =
            check.fault == ImageFault::tooShort && request.parameter(kImageField) == "";
        return isEmpty ? "empty" : nameOf(check.fault);
    }
    if (!isTicked) {
        return "notConfirmed";
    }
    Journal::getInstance()->info("Firmware %s was received", check.version.c_str());
    variables.set("newVersion", check.version);
    return nameOf(check.fault);
}

void UpgradePage::discard(kit::Request& request, kit::Response& response,
                          const kit::SignIn& signIn) {
    if (m_phone.firmware.discard()) {
        finishAt("/servlet?p=settings-upgrade", "firmwareDiscarded", request, response);
    } else {
        showMessage(request, response, signIn, 500, "failed");
    }
}

void UpgradePage::reboot(kit::Request& request, kit::Response& response,
                         const kit::SignIn& signIn) {
    if (isConfirmed(request, response, signIn)) {
        restart(request, response, signIn, Task::restart);
    }
}

void UpgradePage::reset(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    if (isConfirmed(request, response, signIn)) {
        restart(request, response, signIn, Task::factoryReset);
    }
}

// Returns what the user who sent the form does not know of a restart, as the page shows it; null if
// the user knows all.
const char* UpgradePage::unknownTo(kit::Request& request) const {
    if (!request.isChecked("confirm")) {
        return "notConfirmed";
    }
    if (!request.isChecked("endCall") && m_phone.desk.view().isCallUnderWay()) {
        return "callBegan";
    }
    // A busy phone refuses the restart anyway.
    const bool isBusy = m_phone.maintenance.progress().task != Task::none;
    return isBusy || namedVersion(request) == m_phone.firmware.waitingVersion() ? nullptr
                                                                                : "versionChanged";
}

// Returns whether the user knows what a restart does. If not, the forms have been sent.
bool UpgradePage::isConfirmed(kit::Request& request, kit::Response& response,
                              const kit::SignIn& signIn) {
    const char* unknown = unknownTo(request);
    if (!unknown) {
        return true;
    }
    kit::Variables variables = frame(request, signIn);
    variables.set("result", unknown);
    response.status(422);
    showPage(request, response, std::move(variables));
    return false;
}

void UpgradePage::restart(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                          Task task) {
    if (const int failure = begin(m_phone, task)) {
        showMessage(request, response, signIn, failure, failure == 409 ? "busy" : "failed");
        return;
    }
    Journal::getInstance()->info("%s was started by %s", wordOf(task), signIn.user.c_str());
    m_phone.statusWord.began(task);
    m_phone.desk.command("hangup");
    m_phone.firmware.start(namedVersion(request));
    if (task == Task::factoryReset) {
        m_phone.signIns.endOthers(request); // they signed in with the previous password
    }
    showRestart(request, response, signIn);
}

void UpgradePage::showRestart(kit::Request& request, kit::Response& response,
                              const kit::SignIn& signIn) {
    const Maintenance::Progress progress = m_phone.maintenance.progress();
    if (!isStart(progress.task)) {
        response.seeOther("/servlet?p=settings-upgrade");
        return;
    }
    show(request, response, "restart.html",
         std::move(frame(request, signIn)
                       .set("asked", wordOf(progress.task))
                       .set("percent", progress.percent)
                       .set("seconds", progress.remaining.count())));
}

} // namespace phone
