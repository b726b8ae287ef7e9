#include "app_log.h"

#include "log_control.h"
#include "log_writer.h"

#include <cstdarg>
#include <cstdio>

void app_log(int module, int level, const char* format, ...) {
    char number[16];
    std::snprintf(number, sizeof number, "%d", module);
    va_list arguments;
    va_start(arguments, format);
    device_log::writeRecord(number, level, format, arguments);
    va_end(arguments);
}

int app_log_threshold() {
    return device_log::threshold();
}

void app_log_set_threshold(int level) {
    device_log::setThreshold(level);
}

void app_log_mark_requests(app_log_request (*current)()) {
    device_log::markRequests(current);
}
