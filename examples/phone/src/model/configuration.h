// Exports and imports the configuration as XML.
//
// It contains accounts, network, audio, provisioning and web access. It omits secrets (the
// accounts' passwords, the web user's name and password) and the contacts, which have a format of
// their own (contacts_csv.h).
#ifndef MODEL_CONFIGURATION_H
#define MODEL_CONFIGURATION_H

#include "model/device.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

constexpr std::size_t kMaxConfigurationErrors = 50;

// A full configuration takes a tenth of this.
constexpr std::size_t kMaxConfigurationBytes = 64 * 1024;

std::string configurationText(const Settings& settings);

// Sets what `text` contains, checked like form values; sets nothing if there is any error. Settings
// that the text omits stay as they are. An account keeps its secret only if user name and server
// stay the same: importing a file must not send a secret to another server.
//   Errors   name fields by their place: "account[2]/port", "network/gateway", …; accounts count
//            from 1. At most kMaxConfigurationErrors are returned. Errors of the whole file have
//            the field "config": tooLarge, notUtf8, notXml (also for a document type declaration,
//            which no configuration needs). unknownElement and duplicate name the element;
//            "account" has tooMany if there are more than six.
Errors readConfiguration(std::string_view text, Settings& settings);

// The local copy: one configuration that the phone keeps itself. Each function is an Edit for
// Device::change().
Errors keepLocalCopy(State& state); // replaces the copy by the current settings
// Sets the settings to those of the copy. Without a copy, returns the error "required" for the
// field "config".
Errors restoreLocalCopy(State& state);
Errors removeLocalCopy(State& state); // does nothing without a copy

} // namespace phone

#endif
