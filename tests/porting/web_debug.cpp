// Writes the log of the web interface with app_log().
#include "web_debug.h"

#include "app_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

constexpr int kWebInterface = 65;
std::mutex userLock;
std::string user;

__attribute__((format(printf, 2, 0))) void log(int level, const char* format, va_list arguments) {
    const int kept = errno;
    char text[800];
    std::vsnprintf(text, sizeof text, format, arguments);
    std::lock_guard<std::mutex> guard(userLock);
    app_log(kWebInterface, level, "%s%s%s", user.c_str(), user.empty() ? "" : ": ", text);
    errno = kept;
}

} // namespace

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(6, format, arguments);
    va_end(arguments);
}

void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(4, format, arguments);
    va_end(arguments);
}

void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(3, format, arguments);
    va_end(arguments);
}

void WebDebug::setUser(const char* name) {
    std::lock_guard<std::mutex> guard(userLock);
    user = name != nullptr ? name : "";
}
