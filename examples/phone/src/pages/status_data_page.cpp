#include "pages/status_data_page.h"

#include "model/meters.h"
#include "registration.h"

#include <charconv>
#include <string_view>

namespace phone {

kit::Json toJson(const LoggedEvent& event) {
    return {{"time", localTimeText(event.time)},
            {"name", event.name},
            {"value", event.value},
            {"from", event.remoteAddress},
            {"ago", (systemClock() - event.moment).count()},
            {"result", nameOf(event.result)}};
}

// An array, which is shorter than an object: memory, received, sent, events.
kit::Json toJson(const Sample& sample) {
    return kit::Json::array({sample.memoryUsed, sample.received, sample.sent, sample.events});
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

kit::Json desk(const PhoneView& view, const Settings& settings) {
    return {{"lineLabel", labelOfLine(settings, static_cast<std::size_t>(view.line))},
            {"screen", nameOf(view.screen)},
            {"digits", view.digits},
            {"state", nameOf(view.call)},
            {"key", view.key},
            {"presses", view.presses},
            {"lamps", lamps(view)}};
}

// Returns the part of the history that the client does not have: it sends the number of the next
// sample.
kit::Json newHistory(const History& history, std::string_view since) {
    std::uint64_t first = 0;
    std::from_chars(since.data(), since.data() + since.size(), first);
    const History::Part part = history.since(first);
    return {{"next", part.next}, {"events", part.events}, {"samples", part.samples}};
}

} // namespace

void StatusDataPage::answer(kit::Request& request, kit::Response& response, const kit::SignIn&) {
    const auto state = m_phone.device.state();
    const Memory now = memory();
    const Traffic moved = traffic();
    const auto progress = m_phone.maintenance.progress();
    kit::Json data{
        {"uptime", {{"seconds", m_phone.maintenance.upTime().count()}}},
        {"memory", {{"total", now.total / 1024}, {"available", now.available / 1024}}},
        {"traffic", {{"received", moved.received}, {"sent", moved.sent}}},
        {"events", {{"count", m_phone.events.count()}, {"recent", m_phone.events.recent()}}},
        {"accounts", state->settings.accounts},
        {"desk", desk(m_phone.desk.view(), state->settings)},
        {"busy", {{"word", wordOf(progress.task)}, {"percent", progress.percent}}}};
    if (const auto since = request.parameter("since")) {
        data.set("history", newHistory(m_phone.history, *since));
    }
    response.json(data);
}

} // namespace phone
