#include "web_debug.h"

#include "log_writer.h"

#include <syslog.h>

#include <cstdarg>

namespace {

constexpr const char* kModule = "web";

} // namespace

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    device_log::writeRecord(kModule, LOG_INFO, format, arguments);
    va_end(arguments);
}

void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    device_log::writeRecord(kModule, LOG_WARNING, format, arguments);
    va_end(arguments);
}

void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    device_log::writeRecord(kModule, LOG_ERR, format, arguments);
    va_end(arguments);
}

void WebDebug::setUser(const char* user) {
    device_log::setUser(user);
}
