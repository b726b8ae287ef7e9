#include "model/desk_phone.h"

#include "base/ascii.h"
#include "model/directory.h"

#include <algorithm>

namespace phone {
namespace {

constexpr const char* kCaller = "1002"; // the caller of a simulated incoming call

// Returns the digit of a key, or 0 for any other key.
char digitOf(std::string_view key) {
    if (key == "STAR") {
        return '*';
    }
    if (key == "POUND") {
        return '#';
    }
    return key.size() == 1 && base::isAsciiDigit(key.front()) ? key.front() : '\0';
}

// Returns the number of a line key, or 0 for any other key.
int lineOf(std::string_view key) {
    const int line = key.size() == 2 && key.front() == 'L' ? key.back() - '0' : 0;
    return line >= 1 && line <= static_cast<int>(PhoneView::kLines) ? line : 0;
}

Lamp lampOf(Call call) {
    switch (call) {
    case Call::idle:
        return Lamp::off;
    case Call::ringing:
    case Call::held:
        return Lamp::blinking;
    case Call::dialing:
    case Call::talking:
        break;
    }
    return Lamp::on;
}

Screen screenOf(Call call) {
    switch (call) {
    case Call::idle:
        return Screen::ready;
    case Call::dialing:
        return Screen::dialing;
    case Call::ringing:
        return Screen::ringing;
    case Call::talking:
        return Screen::talking;
    case Call::held:
        return Screen::held;
    }
    return Screen::ready;
}

} // namespace

const char* nameOf(Call call) {
    switch (call) {
    case Call::idle:
        return "idle";
    case Call::dialing:
        return "dialing";
    case Call::ringing:
        return "ringing";
    case Call::talking:
        return "talking";
    case Call::held:
        return "held";
    }
    return "";
}

const char* nameOf(Lamp lamp) {
    switch (lamp) {
    case Lamp::off:
        return "off";
    case Lamp::on:
        return "on";
    case Lamp::blinking:
        return "blinking";
    }
    return "";
}

const char* nameOf(Screen screen) {
    switch (screen) {
    case Screen::ready:
        return "ready";
    case Screen::doNotDisturb:
        return "doNotDisturb";
    case Screen::menu:
        return "menu";
    case Screen::dialing:
        return "dialing";
    case Screen::ringing:
        return "ringing";
    case Screen::talking:
        return "talking";
    case Screen::held:
        return "held";
    }
    return "";
}

bool PhoneView::isCallUnderWay() const {
    return call == Call::ringing || call == Call::talking || call == Call::held;
}

DeskPhone::DeskPhone() {
    show();
}

PhoneView DeskPhone::view() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_view;
}

bool DeskPhone::press(std::string_view key) {
    const std::lock_guard<std::mutex> lock(m_lock);
    const bool known = pressed(key);
    if (known) {
        m_view.key = key;
        ++m_view.presses;
    }
    show();
    return known;
}

bool DeskPhone::dial(std::string_view number) {
    Contact contact{"Somebody", std::string(number)};
    const std::lock_guard<std::mutex> lock(m_lock);
    const bool free = m_view.call == Call::idle || m_view.call == Call::dialing;
    if (!free || !checkContact(contact).empty()) {
        return false;
    }
    m_digits = contact.number;
    enter(Call::talking, m_view.line);
    show();
    return true;
}

bool DeskPhone::command(std::string_view text) {
    const std::lock_guard<std::mutex> lock(m_lock);
    const bool done = followed(text);
    show();
    return done;
}

bool DeskPhone::pressed(std::string_view key) {
    if (const char digit = digitOf(key)) {
        pressedDigit(digit);
    } else if (const int line = lineOf(key)) {
        pressedLine(line);
    } else if (key == "OK") {
        pressedOk();
    } else if (key == "CANCEL") {
        pressedCancel();
    } else if (key == "HOLD") {
        pressedHold();
    } else if (key == "SPEAKER") {
        pressedVoice(m_view.speaker, m_view.headset);
    } else if (key == "HEADSET") {
        pressedVoice(m_view.headset, m_view.speaker);
    } else if (key == "MUTE") {
        m_view.mute = !m_view.mute && inCall();
    } else if (key == "MENU") {
        m_menu = !m_menu && m_view.call == Call::idle;
    } else {
        return pressedArrow(key);
    }
    return true;
}

bool DeskPhone::pressedArrow(std::string_view key) {
    if (key == "VOLUME_UP" || key == "VOLUME_DOWN") {
        m_view.volume = std::clamp(m_view.volume + (key == "VOLUME_UP" ? 1 : -1), 0, kMaxVolume);
        return true;
    }
    const bool forwards = key == "DOWN" || key == "RIGHT";
    if (!forwards && key != "UP" && key != "LEFT") {
        return false;
    }
    if (m_view.call == Call::idle) {
        const int lines = static_cast<int>(PhoneView::kLines);
        m_view.line = (m_view.line - 1 + (forwards ? 1 : lines - 1)) % lines + 1;
    }
    return true;
}

void DeskPhone::pressedDigit(char digit) {
    if (m_view.call == Call::idle) {
        m_digits.clear();
        enter(Call::dialing, m_view.line);
    }
    const bool taken = m_view.call == Call::dialing || m_view.call == Call::talking;
    if (taken && m_digits.size() < kMaxDigits) {
        m_digits += digit;
    }
}

void DeskPhone::pressedLine(int line) {
    if (m_view.call == Call::idle || m_view.call == Call::dialing) {
        enter(Call::dialing, line);
    } else if (line != m_view.line) {
        return;
    } else if (m_view.call == Call::ringing) {
        enter(Call::talking, line);
    } else {
        pressedHold();
    }
}

void DeskPhone::pressedOk() {
    const bool number = std::any_of(m_digits.begin(), m_digits.end(), base::isAsciiDigit);
    if (m_view.call == Call::ringing || m_view.call == Call::held ||
        (m_view.call == Call::dialing && number)) {
        enter(Call::talking, m_view.line);
    }
}

void DeskPhone::pressedCancel() {
    m_menu = false;
    if (m_view.call == Call::dialing && !m_digits.empty()) {
        m_digits.pop_back();
    } else {
        end();
    }
}

void DeskPhone::pressedHold() {
    if (m_view.call == Call::talking) {
        m_view.call = Call::held;
    } else if (m_view.call == Call::held) {
        m_view.call = Call::talking;
    }
}

// Handles SPEAKER and HEADSET; `way` is the key's own audio path.
void DeskPhone::pressedVoice(bool& way, bool& other) {
    if (way) {
        end();
        return;
    }
    way = true;
    other = false;
    if (m_view.call == Call::idle) {
        m_digits.clear();
        enter(Call::dialing, m_view.line);
    } else if (m_view.call == Call::ringing) {
        enter(Call::talking, m_view.line);
    }
}

bool DeskPhone::followed(std::string_view text) {
    const Call before = m_view.call;
    if (text == "answer" && before == Call::ringing) {
        enter(Call::talking, m_view.line);
    } else if (text == "hangup" && before != Call::idle) {
        end();
    } else if (text == "hold" && inCall()) {
        pressedHold();
    } else if (text == "ring" && before == Call::idle && !m_view.doNotDisturb) {
        m_digits = kCaller;
        enter(Call::ringing, m_view.line);
    } else if (text == "dnd_on" || text == "dnd_off") {
        m_view.doNotDisturb = text == "dnd_on";
    } else if (text == "message_on" || text == "message_off") {
        m_view.messageLamp = text == "message_on" ? Lamp::blinking : Lamp::off;
    } else {
        return false;
    }
    return true;
}

bool DeskPhone::inCall() const {
    return m_view.call == Call::talking || m_view.call == Call::held;
}

// A call needs an audio path: the speaker, unless the headset is on.
void DeskPhone::enter(Call call, int line) {
    m_menu = false;
    m_view.call = call;
    m_view.line = line;
    if (call != Call::ringing && !m_view.headset) {
        m_view.speaker = true;
    }
}

void DeskPhone::end() {
    m_digits.clear();
    m_view.call = Call::idle;
    m_view.speaker = false;
    m_view.headset = false;
    m_view.mute = false;
}

// Updates the lamps and the display from the state.
void DeskPhone::show() {
    m_view.lineLamps.fill(Lamp::off);
    m_view.lineLamps[static_cast<std::size_t>(m_view.line) - 1] = lampOf(m_view.call);
    const bool idle = m_view.call == Call::idle;
    m_view.digits = idle ? "" : m_digits;
    if (m_menu) {
        m_view.screen = Screen::menu;
    } else if (idle && m_view.doNotDisturb) {
        m_view.screen = Screen::doNotDisturb;
    } else {
        m_view.screen = screenOf(m_view.call);
    }
}

} // namespace phone
