// What the pages and the listeners share.
#ifndef PHONE_H
#define PHONE_H

#include "event_log.h"
#include "firmware.h"
#include "kit/sign_in.h"
#include "model/desk_phone.h"
#include "model/device.h"
#include "model/maintenance.h"
#include "status_word.h"

#include <mutex>
#include <string>
#include <utility>

namespace phone {

// Where a phone keeps its files. All but `factoryContacts` are written, beside their names too.
struct Files {
    std::string state;
    std::string factoryContacts;
    std::string firmwareImage;
};

// Those below /phone on the device.
Files deviceFiles();

// Any thread may use the parts; they outlive every page, listener and session.
struct Phone {
    explicit Phone(Files where, Maintenance::Clock clock = systemClock)
        : files(std::move(where)), device({files.state, files.factoryContacts}),
          firmware(files.firmwareImage), maintenance(std::move(clock)) {}

    const Files files;
    Device device;
    Firmware firmware;
    Maintenance maintenance;
    DeskPhone desk;
    EventLog events;
    StatusWord statusWord;
    kit::SignIns signIns;
    // Held while an upload is received, and tried, never waited for: there are few request loops,
    // and clients that send slowly must not have them all.
    std::mutex receiving;
};

} // namespace phone

#endif
