#include "pages/status_page.h"

#include "duration.h"
#include "model/firmware_image.h"
#include "model/meters.h"
#include "registration.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace phone {
namespace {

void addAccounts(kit::Variables& variables, const Settings& settings) {
    std::size_t index = 0;
    variables.rows("accounts", settings.accounts, [&](const Account& account) {
        return kit::Variables()
            .set("index", index++)
            .set("label", account.label)
            .set("state", registrationOf(account));
    });
}

kit::Variables interfaceRow(const NetworkInterface& interface) {
    return kit::Variables()
        .set("name", interface.name)
        .set("address", interface.address)
        .set("hardware", interface.hardwareAddress);
}

kit::Variables eventRow(const LoggedEvent& event) {
    return durationVariables(systemClock() - event.moment)
        .set("time", localTimeText(event.time))
        .set("result", nameOf(event.result))
        .set("name", event.name)
        .set("value", event.value)
        .set("from", event.remoteAddress);
}

} // namespace

void StatusPage::answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    char model[32];
    std::snprintf(model, sizeof model, "%s", kPhoneModel);
    response.raw().setDevtype(model);

    const Memory now = memory();
    const Traffic moved = traffic();
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    const auto state = m_phone.device.state();
    addAccounts(variables, state->settings);
    variables.set("provisioningServer", state->settings.provisioning.server)
        .set("firmware", m_phone.firmware.version())
        .set("memoryTotal", now.total / 1024)
        .set("memoryAvailable", now.available / 1024)
        .set("trafficReceived", moved.received)
        .set("trafficSent", moved.sent)
        .set("eventCount", m_phone.events.count())
        .rows("uptime", std::array{m_phone.maintenance.upTime()}, durationVariables)
        .rows("interfaces", networkInterfaces(), interfaceRow)
        .rows("events", m_phone.events.recent(), eventRow);
    show(request, response, "status.html", std::move(variables));
}

} // namespace phone
