// What differs between the phone's plug-in library and the one that the tests open: where the phone
// keeps its files, and the clock that it goes by. Linked in the place of phone.cpp.
#include "phone.h"

#include "kit/clock.h"

#include <cstdlib>
#include <ctime>

namespace phone {

Files deviceFiles() {
    const char* folder = std::getenv("PHONE_TEST_FOLDER");
    const std::string data = std::string(folder ? folder : "/nonexistent") + "/";
    return {data + "state.xml", data + "factory.csv", data + "firmware.img"};
}

} // namespace phone

// NOLINTBEGIN(bugprone-reserved-identifier): the name is the linker's.
extern "C" int __wrap_clock_gettime(clockid_t, timespec* time) {
    *time = {kit::clockSeconds(), 0};
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)
