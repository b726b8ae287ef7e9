#include "pages/status_data_page.h"

#include "json.h"
#include "model/meters.h"
#include "registration.h"

namespace phone {
namespace {

std::string upTimeJson(std::chrono::seconds time) {
    return JsonObject()
        .add("text", upTimeText(time))
        .add("seconds", static_cast<std::uint64_t>(time.count()))
        .text();
}

std::string memoryJson() {
    const Memory now = memory();
    return JsonObject()
        .add("total", now.total / 1024)
        .add("available", now.available / 1024)
        .text();
}

std::string trafficJson() {
    const Traffic now = traffic();
    return JsonObject().add("received", now.received).add("sent", now.sent).text();
}

std::string eventJson(const LoggedEvent& event) {
    return JsonObject()
        .add("time", localTimeText(event.time))
        .add("name", event.name)
        .add("value", event.value)
        .add("from", event.remoteAddress)
        .add("followed", event.followed)
        .text();
}

std::string accountJson(const Account& account) {
    return JsonObject().add("label", account.label).add("state", registrationOf(account)).text();
}

std::string lampsJson(const PhoneView& view) {
    const auto lit = [](bool on) { return nameOf(on ? Lamp::on : Lamp::off); };
    JsonObject lamps;
    for (std::size_t i = 0; i < view.lineLamps.size(); ++i) {
        lamps.add(("L" + std::to_string(i + 1)).c_str(), nameOf(view.lineLamps[i]));
    }
    return lamps.add("message", nameOf(view.messageLamp))
        .add("speaker", lit(view.speaker))
        .add("mute", lit(view.mute))
        .add("headset", lit(view.headset))
        .text();
}

std::string deskJson(const PhoneView& view) {
    return JsonObject()
        .add("line1", view.display[0])
        .add("line2", view.display[1])
        .add("state", nameOf(view.call))
        .add("key", view.key)
        .add("presses", view.presses)
        .addJson("lamps", lampsJson(view))
        .text();
}

std::string busyJson(const Maintenance::Progress& progress) {
    return JsonObject()
        .add("word", wordOf(progress.task))
        .add("percent", static_cast<std::uint64_t>(progress.percent))
        .text();
}

} // namespace

void StatusDataPage::answer(kit::Request&, kit::Response& response, const kit::SignIn&) {
    const std::string events = JsonObject()
                                   .add("count", m_phone.events.count())
                                   .addJson("recent", jsonArray(m_phone.events.recent(), eventJson))
                                   .text();
    response.json(
        JsonObject()
            .addJson("uptime", upTimeJson(m_phone.maintenance.upTime()))
            .addJson("memory", memoryJson())
            .addJson("traffic", trafficJson())
            .addJson("events", events)
            .addJson("accounts", jsonArray(m_phone.device.state()->settings.accounts, accountJson))
            .addJson("desk", deskJson(m_phone.desk.view()))
            .addJson("busy", busyJson(m_phone.maintenance.progress()))
            .text());
}

} // namespace phone
