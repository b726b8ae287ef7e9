// Replaces the device's log: formats each record and discards it.
#include "app_log.h"
#include "fuzz.h"
#include "web_debug.h"

#include <cstdarg>

namespace {

void discard(const char* format, va_list arguments) {
    char text[1024];
    fuzz::require(std::vsnprintf(text, sizeof text, format, arguments) >= 0,
                  "a record can be formatted");
}

} // namespace

void app_log(int, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    discard(format, arguments);
    va_end(arguments);
}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    discard(format, arguments);
    va_end(arguments);
}

void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    discard(format, arguments);
    va_end(arguments);
}

void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    discard(format, arguments);
    va_end(arguments);
}

void WebDebug::setUser(const char*) {}
