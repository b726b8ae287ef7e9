#include "places.h"

// What stands before /phone; a run out of the build folder sets it.
#ifndef DEVICE_ROOT
#define DEVICE_ROOT ""
#endif

namespace phone {

std::string templatePath(const char* name) {
    return std::string(DEVICE_ROOT "/phone/www/WEB-INFO/templates/") + name;
}

const char* firmwareImagePath() {
    return DEVICE_ROOT "/phone/data/firmware.img";
}

} // namespace phone
