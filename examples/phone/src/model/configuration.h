// The configuration as an XML text: to take it from the phone, and to give it back.
//
// It holds accounts, network, audio and web access. It does not hold what would do harm in a
// stranger's hands: the accounts' secrets and the web user's name and password. Nor contacts, which
// have a format of their own (contacts_csv.h).
#ifndef MODEL_CONFIGURATION_H
#define MODEL_CONFIGURATION_H

#include "model/device.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

constexpr std::size_t kMaxConfigurationErrors = 50;

// A full configuration takes a tenth of it.
constexpr std::size_t kMaxConfigurationBytes = 64 * 1024;

std::string configurationText(const Settings& settings);

// Sets what the text says, checked as the forms' values are, or, when anything is wrong, nothing.
// What the text does not mention stays as it is. An account keeps its secret while user name and
// server stay the same, and loses it otherwise: a secret must not go to another server because
// somebody imported a file.
//   Errors   of fields named by their place: "account[2]/port", "network/gateway", …; accounts
//            count from 1; the first kMaxConfigurationErrors of them. Of the field "config":
//            tooLarge, notUtf8, notXml (also for a document type, which no configuration needs).
//            unknownElement names the element; so does duplicate; tooMany of "account" when there
//            are more than six.
Errors readConfiguration(std::string_view text, Settings& settings);

// The local copy: the phone keeps one configuration itself. Each is an Edit of Device::change().
Errors keepLocalCopy(State& state); // the settings of now, in the place of the last copy
// Takes the settings of the copy: "required" of the field "config" when there is none.
Errors restoreLocalCopy(State& state);
Errors removeLocalCopy(State& state); // does nothing when there is none

} // namespace phone

#endif
