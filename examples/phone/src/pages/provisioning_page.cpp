#include "pages/provisioning_page.h"

#include "model/meters.h"

namespace phone {
namespace {

// A plausible time to load a small configuration over a slow line.
constexpr std::chrono::seconds kProvisioningTime{10};

} // namespace

void ProvisioningPage::answer(kit::Request& request, kit::Response& response,
                              const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    if (request.parameter("now") == "true") {
        if (!mayChange(request, response, signIn)) {
            return;
        }
        if (m_phone.maintenance.start(Task::provisioning, kProvisioningTime)) {
            m_phone.statusWord.began(Task::provisioning);
        } else {
            variables.set("result", "busy");
            response.status(409);
        }
    }
    const auto progress = m_phone.maintenance.progress();
    variables.set("running", progress.task == Task::provisioning).set("percent", progress.percent);
    if (const auto since = m_phone.maintenance.sinceProvisioning()) {
        variables.set("lastRun", upTimeText(*since));
    }
    show(request, response, "settings-autop.html", std::move(variables));
}

} // namespace phone
