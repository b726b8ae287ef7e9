// Shared by the pages and the listeners.
#ifndef PHONE_H
#define PHONE_H

#include "event_log.h"
#include "firmware.h"
#include "kit/origin.h"
#include "kit/sign_in.h"
#include "model/desk_phone.h"
#include "model/device.h"
#include "model/maintenance.h"
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
};

// Returns the paths below /phone on the device.
Files deviceFiles();

// The members are thread-safe and outlive every page, listener and session.
struct Phone {
    explicit Phone(Files where, Maintenance::Clock clock = systemClock)
        : files(std::move(where)), device({files.state, files.factoryContacts}),
          firmware(files.firmwareImage), maintenance(std::move(clock)) {
        kit::HostNames::accept(
            [this](const std::string& name) { return isHostName(name, device.state()->settings); });
    }
    ~Phone() { kit::HostNames::accept(nullptr); }
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    const Files files;
    Device device;
    Firmware firmware;
    Maintenance maintenance;
    DeskPhone desk;
    EventLog events;
    StatusWord statusWord;
    kit::SignIns signIns;
    // Locked while an upload is received. Use try_lock only: there are few request loops, and
    // clients that send slowly must not block all of them.
    std::mutex receiving;
};

} // namespace phone

#endif
