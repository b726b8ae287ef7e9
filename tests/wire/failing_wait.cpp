// Simulates a failure of the main thread for the daemon under test: if there is a file "failure" in
// WIRE_FOLDER, removes it and throws. Replaces sigtimedwait(2) in the program that it is linked
// into.
#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>

extern "C" int sigtimedwait(const sigset_t* signals, siginfo_t* info, const timespec* limit) {
    static const char* const folder = std::getenv("WIRE_FOLDER");
    if (folder != nullptr && unlink((std::string(folder) + "/failure").c_str()) == 0)
        throw std::runtime_error("simulated failure");
    // The header replaces the name where times have more bits than the processor.
    constexpr const char* kName =
        sizeof(time_t) > sizeof(long) ? "__sigtimedwait64" : "sigtimedwait";
    using Function = int (*)(const sigset_t*, siginfo_t*, const timespec*);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, kName));
    return original(signals, info, limit);
}
