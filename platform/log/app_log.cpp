#include "app_log.h"

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
