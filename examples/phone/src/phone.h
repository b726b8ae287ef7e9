// Shared by the pages and the listeners.
#ifndef PHONE_H
#define PHONE_H

#include "event_log.h"
#include "firmware.h"
#include "kit/origin.h"
#include "kit/sign_in.h"
#include "model/desk_phone.h"
#include "model/device.h"
#include "model/history.h"
#include "model/maintenance.h"
#include "model/network_trial.h"
#include "status_word.h"

#include <mutex>
#include <string>
#include <utility>

namespace phone {

// The phone's files. All except `factoryContacts` are written, and so are files next to them.
struct Files {
    std::string state;
    std::string factoryContacts;
    std::string firmwareImage;
    std::string networkTrial;
};

// Returns the paths below /phone on the device.
Files deviceFiles();

// The cookie of those who are signed in, or were before their session ended.
constexpr const char* kKeyCookie = "signIn";

// The members are thread-safe and outlive every page, listener and session.
struct Phone {
    explicit Phone(Files where, const Maintenance::Clock& clock = systemClock)
        : files(std::move(where)), device({files.state, files.factoryContacts}),
          network(device, files.networkTrial, clock), firmware(files.firmwareImage),
          maintenance(clock) {
        kit::HostNames::accept(
            [this](const std::string& name) { return isHostName(name, device.state()->settings); });
    }
    ~Phone() { kit::HostNames::accept(nullptr); }
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    const Files files;
    Device device;
    NetworkTrial network; // changes of the network settings go through it
    Firmware firmware;
    Maintenance maintenance;
    DeskPhone desk;
    EventLog events;
    History history;
    StatusWord statusWord;
    kit::SignIns signIns{kKeyCookie};
    // Locked while an upload is received, or a backup is encrypted or decrypted: each takes much
    // memory. Use try_lock only: there are few request loops, and clients that send slowly, or ask
    // for one backup after the other, must not block all of them.
    std::mutex receiving;
};

} // namespace phone

#endif
