#include "pages/phone_page.h"

#include <array>

namespace phone {
namespace {

const char* lit(bool on) {
    return nameOf(on ? Lamp::on : Lamp::off);
}

void addView(kit::Variables& variables, const PhoneView& view, const Settings& settings) {
    std::size_t line = 0;
    variables.set("deskState", nameOf(view.call))
        .set("lastKey", view.key)
        .set("lampMessage", nameOf(view.messageLamp))
        .set("lampSpeaker", lit(view.speaker))
        .set("lampMute", lit(view.mute))
        .set("lampHeadset", lit(view.headset))
        // A row, since the script fills in variables of the same names itself.
        .rows("display", std::array{&view},
              [&settings](const PhoneView* shown) {
                  return kit::Variables()
                      .set("lineLabel",
                           labelOfLine(settings, static_cast<std::size_t>(shown->line)))
                      .set("screen", nameOf(shown->screen))
                      .set("digits", shown->digits);
              })
        .rows("lines", view.lineLamps, [&settings, &line](Lamp lamp) {
            ++line;
            return kit::Variables()
                .set("number", line)
                .set("label", labelOfLine(settings, line))
                .set("lamp", nameOf(lamp));
        });
}

} // namespace

void PhonePage::answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    if (request.isPost()) {
        if (!mayChange(request, response, signIn)) {
            return;
        }
        if (act(request)) {
            response.seeOther("/servlet?p=phone");
            return;
        }
        response.status(422);
        variables.set("notDone", true);
    }
    addView(variables, m_phone.desk.view(), m_phone.device.state()->settings);
    show(request, response, "phone.html", std::move(variables));
}

bool PhonePage::act(kit::Request& request) {
    if (const auto key = request.parameter("key")) {
        return m_phone.desk.press(*key);
    }
    if (const auto number = request.parameter("number")) {
        return m_phone.desk.dial(*number);
    }
    return m_phone.desk.command(request.parameter("command").value_or(""));
}

} // namespace phone
