// Replaces phone.cpp in the library that the tests open: files where the test wants them, a clock
// that the test sets, a call of the test before each token is made, and one more page.
#include "phone.h"

#include "kit/clock.h"
#include "kit/plugin.h"

#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <sys/types.h>

namespace phone {

Files deviceFiles() {
    const char* folder = std::getenv("PHONE_TEST_FOLDER");
    const std::string data = std::string(folder ? folder : "/nonexistent") + "/";
    return {data + "state.xml", data + "factory.csv", data + "firmware.img",
            data + "network-trial.xml"};
}

} // namespace phone

namespace {

// A page that relies on the listeners alone: it does not check whether the user is signed in. Fails
// if it is asked to.
class UnguardedPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.isChecked("fail")) {
            throw std::runtime_error("asked to fail");
        }
        response.text("shown");
    }
};

} // namespace

KIT_SERVLET(createUnguardedPage, UnguardedPage)

// NOLINTBEGIN(bugprone-reserved-identifier): the name is the linker's.
extern "C" {
int __wrap_clock_gettime(clockid_t, timespec* time) {
    *time = {kit::clockSeconds(), 0};
    return 0;
}

// The name of the same function where times of 64 bits are chosen for a 32-bit processor.
int __wrap___clock_gettime64(clockid_t clock, timespec* time) {
    return __wrap_clock_gettime(clock, time);
}

// Defined by the test program.
void phoneTestBeforeToken() __attribute__((weak));

ssize_t __real_getrandom(void* bytes, std::size_t size, unsigned flags);
ssize_t __wrap_getrandom(void* bytes, std::size_t size, unsigned flags) {
    if (phoneTestBeforeToken != nullptr) {
        phoneTestBeforeToken();
    }
    return __real_getrandom(bytes, size, flags);
}
}
// NOLINTEND(bugprone-reserved-identifier)
