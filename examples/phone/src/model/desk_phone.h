// The phone as somebody in front of it sees it: display, lamps, keys, and the call that it is in.
// There is no telephone line behind it; what the other side does, commands play.
#ifndef MODEL_DESK_PHONE_H
#define MODEL_DESK_PHONE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace phone {

enum class Call { idle, dialing, ringing, talking, held };
enum class Lamp { off, on, blinking };

// "idle", "dialing", "ringing", "talking", "held"; "off", "on", "blinking". Never null.
const char* nameOf(Call call);
const char* nameOf(Lamp lamp);

struct PhoneView {
    static constexpr std::size_t kLines = 6;

    std::array<std::string, 2> display;
    Call call = Call::idle;
    int line = 1;                         // the one in use, or to be used next, from 1
    std::array<Lamp, kLines> lineLamps{}; // on: in use; blinking: ringing or held
    Lamp messageLamp = Lamp::off;
    bool speaker = false;
    bool mute = false;
    bool headset = false;
    bool doNotDisturb = false;
    int volume = 5;
    std::string key;           // the one that was pressed last; empty before the first
    std::uint64_t presses = 0; // how many keys were pressed, those too that did nothing
};

// Any thread, at any time.
//
//   idle      a digit, a line key, SPEAKER, HEADSET: dialing. dial(): talking. Command ring:
//             ringing.
//   dialing   digits, * and # are collected, at most 32; CANCEL takes one back, and ends the
//             dialing when there is none; OK calls.
//   ringing   OK, SPEAKER, HEADSET, the line's key: talking. CANCEL: idle.
//   talking   HOLD or the line's key: held. CANCEL: idle. Digits are sent as tones, and shown.
//   held      HOLD, OK or the line's key: talking. CANCEL: idle.
//
// UP, DOWN, LEFT and RIGHT choose the next line while idle; the volume keys always work (0 to 10);
// MUTE works in a call; SPEAKER and HEADSET turn each other off, and end a call when pressed again.
class DeskPhone {
public:
    static constexpr std::size_t kMaxDigits = 32;
    static constexpr int kMaxVolume = 10;

    DeskPhone();

    PhoneView view() const;

    // One of OK CANCEL UP DOWN LEFT RIGHT 0 to 9 STAR POUND SPEAKER MUTE HEADSET VOLUME_UP
    // VOLUME_DOWN L1 to L6 HOLD MENU. False for any other name; a key that does nothing at the
    // moment is a key all the same.
    bool press(std::string_view key);

    // Calls a number: what checkContact() takes for one. False for others, and while in a call.
    bool dial(std::string_view number);

    // One of answer, hangup, hold (and back), dnd_on, dnd_off, ring, message_on, message_off.
    // False for any other, and for one that cannot be followed now (no call to answer, a ring while
    // busy or not to be disturbed).
    bool command(std::string_view text);

private:
    bool pressed(std::string_view key);
    bool pressedArrow(std::string_view key);
    void pressedDigit(char digit);
    void pressedLine(int line);
    void pressedVoice(bool& way, bool& other);
    void pressedOk();
    void pressedCancel();
    void pressedHold();
    bool followed(std::string_view text);
    bool inCall() const;
    void enter(Call call, int line);
    void end();
    void show();

    mutable std::mutex m_lock; // guards all below
    PhoneView m_view;
    std::string m_digits; // what was dialed, or who is calling
    bool m_menu = false;  // whether the display shows the menu
};

} // namespace phone

#endif
