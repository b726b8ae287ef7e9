#include <kit/testing/recorded_log.h>

// Visible even with -fvisibility=hidden, so that plug-in libraries call these functions too.
#pragma GCC visibility push(default)
#include "app_log.h"
#include "web_debug.h"
#pragma GCC visibility pop

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

using kit::testing::LogRecord;

std::mutex recordsLock;
std::vector<LogRecord> recorded; // guarded by recordsLock

void record(const char* call, int module, int level, const char* format, va_list arguments) {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    std::lock_guard<std::mutex> lock(recordsLock);
    recorded.push_back({call, module, level, text});
}

} // namespace

namespace kit::testing {

std::ostream& operator<<(std::ostream& out, const LogRecord& record) {
    return out << record.call << '(' << record.module << ", " << record.level << ", \""
               << record.text << "\")";
}

std::vector<LogRecord> recorded_log::records() {
    std::lock_guard<std::mutex> lock(recordsLock);
    return recorded;
}

void recorded_log::clear() {
    std::lock_guard<std::mutex> lock(recordsLock);
    recorded.clear();
}

} // namespace kit::testing

void app_log(int module, int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record("app_log", module, level, format, arguments);
    va_end(arguments);
}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record("info", 0, 0, format, arguments);
    va_end(arguments);
}

void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record("warn", 0, 0, format, arguments);
    va_end(arguments);
}

void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record("error", 0, 0, format, arguments);
    va_end(arguments);
}

void WebDebug::setUser(const char* user) {
    std::lock_guard<std::mutex> lock(recordsLock);
    recorded.push_back({"setUser", 0, 0, user != nullptr ? user : "(null)"});
}
