// The phone's settings, and their conversion from and to form values.
//
// The field names are also those of the forms' inputs, of the template variables that show the
// values, and of the elements in configuration files. Defaults are the factory settings.
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
    int vlan = 0; // 0 means none
};

struct Audio {
    std::string ringtone = "classic"; // classic, soft, bell, pulse
    int ringVolume = 6;
    int speakerVolume = 5;
    int handsetVolume = 5;
    int micGain = 0;
    bool echo = true;           // echo cancellation
    std::string codec = "g722"; // opus, g722, pcma, pcmu
};

// Where the phone gets its settings from when it is provisioned.
struct Provisioning {
    std::string server; // a URL, see server_url.h; empty for none
};

struct WebAccess {
    static constexpr std::size_t kMaxRemoteAddresses = 16;
    static constexpr std::size_t kMaxHostNames = 16;

    std::string user = "admin";
    std::string passwordHash;    // see password.h
    bool factoryPassword = true; // whether the factory password is still in use
    int idleSeconds = 600;
    // Addresses that may send events, as inet_ntop(3) writes them. Empty allows none.
    std::vector<std::string> remoteAddresses{"127.0.0.1"};
    // Names that browsers may use for the phone beside its addresses and host name; in lower case.
    std::vector<std::string> hostNames;
};

constexpr std::size_t kAccounts = 6;

struct Settings {
    std::array<Account, kAccounts> accounts;
    Network network;
    Audio audio;
    Provisioning provisioning;
    WebAccess web;
};

// Returns the label of a line of the phone, from 1 on; each line has its account.
inline const std::string& labelOfLine(const Settings& settings, std::size_t line) {
    return settings.accounts.at(line - 1).label;
}

// Returns the factory settings: two accounts are set up, the password hash is empty.
Settings factorySettings();

// Returns whether `name`, in lower case, is the phone's own, with or without ".local", or one of
// the additional names.
bool isHostName(const std::string& name, const Settings& settings);

// Texts by field name as a form sends them, so that a page can show again what was entered. A
// missing field counts as empty. A check box is ticked if its value is "1", and not if it is empty
// or "0".
using Values = std::map<std::string, std::string>;

// Returns the text of `name`, empty if it is missing.
std::string valueOf(const Values& values, const char* name);

// The fields of each form, in the order shown.
extern const std::vector<const char*> kAccountFields;
extern const std::vector<const char*> kNetworkFields;
extern const std::vector<const char*> kAudioFields;
extern const std::vector<const char*> kProvisioningFields;
extern const std::vector<const char*> kWebAccessFields; // idleSeconds, remoteAddresses, hostNames

// Return the values for a form to show. An account's secret is left empty; addresses and host
// names are on a line each.
Values valuesOf(const Account& account);
Values valuesOf(const Network& network);
Values valuesOf(const Audio& audio);
Values valuesOf(const Provisioning& provisioning);
Values valuesOf(const WebAccess& web);

// Set what `values` contain, or, if any of them is wrong, set nothing and return every error. White
// space around a value is ignored, except around a secret. Lengths are in characters. Text that is
// not UTF-8 is notUtf8; control characters are badCharacters.
//
// An empty secret keeps the current one if user name and server stay the same, and clears it
// otherwise: changing a name must not send a secret to another server. An enabled account requires
// user name and server.
Errors readValues(const Values& values, Account& account);
// In mode "static" all fields except dns2 and vlan are required, and the gateway must be in the
// network of address and netmask (prefixes of 1 to 30 bits). "reserved" is an address that no host
// can have (the first and last of the network, 0.x, 127.x, 224.x and above), and a gateway equal to
// the phone's own address. In mode "dhcp" addresses may be missing, and must only be well-formed.
Errors readValues(const Values& values, Network& network);
Errors readValues(const Values& values, Audio& audio);
// The server may be missing. badUrl is what canonicalServerUrl() refuses.
Errors readValues(const Values& values, Provisioning& provisioning);
// Reads only the fields in kWebAccessFields; Device changes the password.
Errors readValues(const Values& values, WebAccess& web);

} // namespace phone

#endif
