// The phone as its user sees it: display, lamps, keys and the current call. No telephone line is
// connected; commands simulate the other party.
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
// What the display shows.
enum class Screen { ready, doNotDisturb, menu, dialing, ringing, talking, held };

// Returns "idle", "dialing", "ringing", "talking" or "held"; "off", "on" or "blinking"; "ready",
// "doNotDisturb", "menu" or the name of the call. Never null.
const char* nameOf(Call call);
const char* nameOf(Lamp lamp);
const char* nameOf(Screen screen);

struct PhoneView {
    static constexpr std::size_t kLines = 6;

    Screen screen = Screen::ready;
    std::string digits; // those dialled, or the caller's number; empty while idle
    Call call = Call::idle;
    int line = 1;                         // the line in use, or the next one to use; from 1
    std::array<Lamp, kLines> lineLamps{}; // on: in use; blinking: ringing or on hold
    Lamp messageLamp = Lamp::off;
    bool speaker = false;
    bool mute = false;
    bool headset = false;
    bool doNotDisturb = false;
    int volume = 5;
    std::string key;           // the key pressed last; empty before the first
    std::uint64_t presses = 0; // all key presses, including those without effect

    // Returns whether there is another party, who notices that the call ends.
    bool isCallUnderWay() const;
};

// Thread-safe.
//
//   idle      a digit, a line key, SPEAKER or HEADSET: dialing. dial(): talking. Command "ring":
//             ringing.
//   dialing   digits, * and # are collected, at most 32. CANCEL removes the last one, or ends
//             dialing if there is none. OK calls.
//   ringing   OK, SPEAKER, HEADSET or the line's key: talking. CANCEL: idle.
//   talking   HOLD or the line's key: held. CANCEL: idle. Digits are sent as tones and shown.
//   held      HOLD, OK or the line's key: talking. CANCEL: idle.
//
// UP, DOWN, LEFT and RIGHT select the next line while idle. The volume keys always work (0 to 10).
// MUTE works in a call. SPEAKER and HEADSET switch each other off, and end a call when pressed
// again.
class DeskPhone {
public:
    static constexpr std::size_t kMaxDigits = 32;
    static constexpr int kMaxVolume = 10;

    DeskPhone();

    PhoneView view() const;

    // Presses one of OK CANCEL UP DOWN LEFT RIGHT 0 to 9 STAR POUND SPEAKER MUTE HEADSET VOLUME_UP
    // VOLUME_DOWN L1 to L6 HOLD MENU. Returns false for any other name, but true for a key that has
    // no effect in the current state.
    bool press(std::string_view key);

    // Calls a number that checkContact() accepts. Returns false for any other, and during a call.
    bool dial(std::string_view number);

    // Carries out one of answer, hangup, hold (and resume), dnd_on, dnd_off, ring, message_on,
    // message_off. Returns false for any other, and for one that the current state does not allow
    // (no call to answer; a ring while busy or in do-not-disturb).
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

    mutable std::mutex m_lock; // guards the members below
    PhoneView m_view;
    std::string m_digits; // the digits dialed, or the caller's number
    bool m_menu = false;  // whether the display shows the menu
};

} // namespace phone

#endif
