// In the place of the device's log: writes each record as that does, and drops it.
#include "app_log.h"
#include "fuzz.h"
#include "web_debug.h"

#include <cstdarg>

namespace {

void drop(const char* format, va_list arguments) {
    char text[1024];
    fuzz::require(std::vsnprintf(text, sizeof text, format, arguments) >= 0, "a record is a text");
}

} // namespace

void app_log(int, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    drop(format, arguments);
    va_end(arguments);
}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    drop(format, arguments);
    va_end(arguments);
}

void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    drop(format, arguments);
    va_end(arguments);
}

void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    drop(format, arguments);
    va_end(arguments);
}

void WebDebug::setUser(const char*) {}
