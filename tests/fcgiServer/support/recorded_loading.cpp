#include "support/recorded_loading.h"

#include "app_log.h"

#include <cstdio>

// The linker puts these in the place of the dynamic loader's functions.
extern "C" {
void* __real_dlopen(const char* path, int flags);
void* __real_dlsym(void* handle, const char* name);
char* __real_dlerror();
int __real_dlclose(void* handle);

void* __wrap_dlopen(const char* path, int flags) {
    app_log(recorded_loading::kModule, 6, "dlopen(%s, %d)", path, flags);
    return __real_dlopen(path, flags);
}
void* __wrap_dlsym(void* handle, const char* name) {
    app_log(recorded_loading::kModule, 6, "dlsym(%p, %s)", handle, name);
    return __real_dlsym(handle, name);
}
char* __wrap_dlerror() {
    app_log(recorded_loading::kModule, 6, "dlerror()");
    return __real_dlerror();
}
int __wrap_dlclose(void* handle) {
    app_log(recorded_loading::kModule, 6, "dlclose(%p)", handle);
    return __real_dlclose(handle);
}
}

std::vector<std::string> recorded_loading::calls() {
    std::vector<std::string> result;
    for (const kit::testing::LogRecord& record : kit::testing::recorded_log::records())
        if (record.call == "app_log" && record.module == kModule)
            result.push_back(record.text);
    return result;
}

std::string recorded_loading::shown(const void* handle) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", handle);
    return text;
}
