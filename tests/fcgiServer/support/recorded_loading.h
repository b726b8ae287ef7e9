// Adds the program's calls of the dynamic loader to the recorded log, in order with all other
// records. The test program is linked with --wrap for the four functions.
#ifndef RECORDED_LOADING_H
#define RECORDED_LOADING_H

#include <kit/testing/recorded_log.h>

#include <string>
#include <vector>

namespace recorded_loading {

constexpr int kModule = 2;

// Returns the calls since the log was cleared: "dlopen(path, flags)", "dlsym(handle, name)",
// "dlerror()", "dlclose(handle)".
std::vector<std::string> calls();

// Returns a handle as it appears in calls().
std::string shown(const void* handle);

} // namespace recorded_loading

#endif
