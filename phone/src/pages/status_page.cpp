#include "pages/status_page.h"

#include "HttpResponse.h"

#include <cstdio>
#include <ctime>

namespace phone {
namespace {

std::string localTime(std::time_t time) {
    std::tm parts{};
    char text[32] = "";
    if (localtime_r(&time, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    }
    return text;
}

std::vector<PageVariables> lineRows(const DeviceState& device) {
    std::vector<PageVariables> rows;
    for (const PhoneLine& line : device.lines()) {
        rows.emplace_back().add("label", line.label).add("number", line.number);
    }
    return rows;
}

std::vector<PageVariables> interfaceRows(const DeviceState& device) {
    std::vector<PageVariables> rows;
    for (const NetworkInterface& interface : device.networkInterfaces()) {
        rows.emplace_back()
            .add("name", interface.name)
            .add("address", interface.address)
            .add("hardware", interface.hardwareAddress);
    }
    return rows;
}

std::vector<PageVariables> eventRows(const EventLog& events) {
    std::vector<PageVariables> rows;
    for (const LoggedEvent& event : events.recent()) {
        rows.emplace_back()
            .add("time", localTime(event.time))
            .add("name", event.name)
            .add("value", event.value)
            .add("from", event.remoteAddress);
    }
    return rows;
}

} // namespace

void StatusPage::answer(HttpRequest&, HttpResponse& response, const SignIn& signIn) {
    char model[32];
    std::snprintf(model, sizeof model, "%s", m_phone.device.model());
    response.setDevtype(model);

    PageVariables variables = frameOf(signIn);
    variables.add("firmware", m_phone.device.firmware())
        .add("uptime", m_phone.device.upTime())
        .addLoop("lines", lineRows(m_phone.device))
        .addLoop("interfaces", interfaceRows(m_phone.device))
        .addLoop("events", eventRows(m_phone.events));
    showTemplate(response, "status.html", std::move(variables));
}

} // namespace phone
