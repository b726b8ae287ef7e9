#include "pages/provisioning_page.h"

#include "duration.h"
#include "model/journal.h"
#include "model/server_url.h"

#include <array>

namespace phone {
namespace {

// A plausible time to load a small configuration over a slow line. No server is connected: nothing
// is loaded.
constexpr std::chrono::seconds kProvisioningTime{10};

} // namespace

void ProvisioningPage::answer(kit::Request& request, kit::Response& response,
                              const kit::SignIn& signIn) {
    if (request.parameter("now") != "true") {
        SettingsPage::answer(request, response, signIn);
    } else if (mayChange(request, response, signIn)) {
        run(request, response, signIn);
    }
}

void ProvisioningPage::run(kit::Request& request, kit::Response& response,
                           const kit::SignIn& signIn) {
    const std::string server = m_phone.device.state()->settings.provisioning.server;
    kit::Variables variables = frame(request, signIn);
    if (const char* problem = start(server, signIn.user)) {
        response.status(409);
        variables.set("result", problem);
    }
    showSaved(request, response, std::move(variables));
}

const char* ProvisioningPage::start(const std::string& server, const std::string& user) {
    if (server.empty()) {
        return "noServer";
    }
    if (!m_phone.maintenance.start(Task::provisioning, kProvisioningTime, server)) {
        return "busy";
    }
    m_phone.statusWord.began(Task::provisioning);
    Journal::getInstance()->info("Auto-provisioning from %s was started by %s", server.c_str(),
                                 user.c_str());
    return nullptr;
}

Values ProvisioningPage::shownAgain(Values values) const {
    values["server"] = withoutCredentials(valueOf(values, "server"));
    return values;
}

void ProvisioningPage::addMore(kit::Request&, kit::Variables& variables) const {
    const auto progress = m_phone.maintenance.progress();
    variables.set("savedServer", m_phone.device.state()->settings.provisioning.server)
        .set("running", progress.task == Task::provisioning)
        .set("runningServer", progress.server)
        .set("percent", progress.percent);
    if (const auto last = m_phone.maintenance.lastProvisioning()) {
        variables.rows("lastRun", std::array{last->ago}, durationVariables)
            .set("lastServer", last->server);
    }
}

} // namespace phone
