#include "pages/phone_page.h"

namespace phone {
namespace {

const char* lit(bool on) {
    return nameOf(on ? Lamp::on : Lamp::off);
}

void addView(kit::Variables& variables, const PhoneView& view) {
    variables.set("line1", view.display[0])
        .set("line2", view.display[1])
        .set("deskState", nameOf(view.call))
        .set("lastKey", view.key)
        .set("lampMessage", nameOf(view.messageLamp))
        .set("lampSpeaker", lit(view.speaker))
        .set("lampMute", lit(view.mute))
        .set("lampHeadset", lit(view.headset));
    for (std::size_t i = 0; i < view.lineLamps.size(); ++i) {
        variables.set(("lampL" + std::to_string(i + 1)).c_str(), nameOf(view.lineLamps[i]));
    }
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
    addView(variables, m_phone.desk.view());
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
