#include "pages/status_data_page.h"

#include "model/meters.h"
#include "registration.h"

namespace phone {

kit::Json toJson(const LoggedEvent& event) {
    return {{"time", localTimeText(event.time)},
            {"name", event.name},
            {"value", event.value},
            {"from", event.remoteAddress},
            {"followed", event.followed}};
}

kit::Json toJson(const Account& account) {
    return {{"label", account.label}, {"state", registrationOf(account)}};
}

namespace {

kit::Json lamps(const PhoneView& view) {
    const auto lit = [](bool on) { return nameOf(on ? Lamp::on : Lamp::off); };
    kit::Json lamps;
    for (std::size_t i = 0; i < view.lineLamps.size(); ++i) {
        lamps.set("L" + std::to_string(i + 1), nameOf(view.lineLamps[i]));
    }
    return std::move(lamps.set("message", nameOf(view.messageLamp))
                         .set("speaker", lit(view.speaker))
                         .set("mute", lit(view.mute))
                         .set("headset", lit(view.headset)));
}

kit::Json desk(const PhoneView& view) {
    return {{"line1", view.display[0]}, {"line2", view.display[1]}, {"state", nameOf(view.call)},
            {"key", view.key},          {"presses", view.presses},  {"lamps", lamps(view)}};
}

} // namespace

void StatusDataPage::answer(kit::Request&, kit::Response& response, const kit::SignIn&) {
    const auto upTime = m_phone.maintenance.upTime();
    const Memory now = memory();
    const Traffic moved = traffic();
    const auto progress = m_phone.maintenance.progress();
    response.json(
        {{"uptime", {{"text", upTimeText(upTime)}, {"seconds", upTime.count()}}},
         {"memory", {{"total", now.total / 1024}, {"available", now.available / 1024}}},
         {"traffic", {{"received", moved.received}, {"sent", moved.sent}}},
         {"events", {{"count", m_phone.events.count()}, {"recent", m_phone.events.recent()}}},
         {"accounts", m_phone.device.state()->settings.accounts},
         {"desk", desk(m_phone.desk.view())},
         {"busy", {{"word", wordOf(progress.task)}, {"percent", progress.percent}}}});
}

} // namespace phone
