#include "phone.h"

// The folder that contains /phone; set for runs from the build folder.
#ifndef DEVICE_ROOT
#define DEVICE_ROOT ""
#endif

namespace phone {

Files deviceFiles() {
    const std::string data = DEVICE_ROOT "/phone/data/";
    return {data + "state.xml", DEVICE_ROOT "/phone/factory/contacts.csv", data + "firmware.img",
            data + "network-trial.xml"};
}

} // namespace phone
