// The phone's settings, and the way from what a form sends to them and back.
//
// The names of the fields are those of the forms' inputs, of the page variables that show the
// values, and of the elements in configuration files. Defaults are the factory values.
#ifndef MODEL_SETTINGS_H
#define MODEL_SETTINGS_H

#include "model/field_error.h"

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace phone {

struct Account {
    bool enabled = false;
    std::string label; // 1 to 20 characters
    std::string displayName;
    std::string userName;
    std::string secret; // never sent to a browser, never exported
    std::string server;
    int port = 5060;
    std::string transport = "udp"; // udp, tcp, tls
    int expiry = 3600;             // seconds
};

struct Network {
    std::string mode = "dhcp"; // dhcp, static
    std::string address;
    std::string netmask;
    std::string gateway;
    std::string dns1;
    std::string dns2;
    std::string hostname = "desk-phone";
    int vlan = 0; // 0: none
};

struct Audio {
    std::string ringtone = "classic"; // classic, soft, bell, pulse
    int ringVolume = 6;
    int speakerVolume = 5;
    int handsetVolume = 5;
    int micGain = 0;
    bool echo = true;           // cancel the echo
    std::string codec = "g722"; // opus, g722, pcma, pcmu
};

struct WebAccess {
    static constexpr std::size_t kMaxRemoteAddresses = 16;

    std::string user = "admin";
    std::string passwordHash;    // see password.h
    bool factoryPassword = true; // whether it still is the one that every phone has
    int idleSeconds = 600;
    // Who may send events, each as inet_ntop(3) writes it. Empty: nobody.
    std::vector<std::string> remoteAddresses{"127.0.0.1"};
};

constexpr std::size_t kAccounts = 6;

struct Settings {
    std::array<Account, kAccounts> accounts;
    Network network;
    Audio audio;
    WebAccess web;
};

// Two accounts are set up. The password hash is empty.
Settings factorySettings();

// Texts by the name of their field, as a form sends them, so that a page can show again what was
// entered. A field that is absent counts as empty; a box is ticked when its value is "1", not
// ticked when it is empty or "0".
using Values = std::map<std::string, std::string>;

// The text of `name`, empty when it is absent.
std::string valueOf(const Values& values, const char* name);

// The fields of each form, in the order in which it shows them.
extern const std::vector<const char*> kAccountFields;
extern const std::vector<const char*> kNetworkFields;
extern const std::vector<const char*> kAudioFields;
extern const std::vector<const char*> kWebAccessFields; // idleSeconds, remoteAddresses

// The values for a form to show; the secret of an account is left empty, addresses stand one a
// line.
Values valuesOf(const Account& account);
Values valuesOf(const Network& network);
Values valuesOf(const Audio& audio);
Values valuesOf(const WebAccess& web);

// Sets what `values` say, or, when anything is wrong with them, sets nothing and gives every error.
// White space around a value does not count (but that of a secret does); lengths are in characters.
// Text that is not UTF-8 is notUtf8, control characters are badCharacters.
//
// An empty secret leaves the one there is while user name and server stay the same, and is none
// otherwise: a secret must not go to another server because somebody changed a name. User name and
// server are required of an enabled account.
Errors readValues(const Values& values, Account& account);
// In mode "static" all but dns2 and vlan are required, and the gateway must be in the network of
// address and netmask (prefixes of 1 to 30 bits). "reserved": an address that no host can have
// (the first and the last of the network, 0.x, 127.x, 224.x and above), and a gateway that is the
// phone itself. In mode "dhcp" addresses may be absent, and need only be well-formed.
Errors readValues(const Values& values, Network& network);
Errors readValues(const Values& values, Audio& audio);
// Only the fields in kWebAccessFields; for the password see Device.
Errors readValues(const Values& values, WebAccess& web);

} // namespace phone

#endif
