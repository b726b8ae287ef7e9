#include "log_writer.h"

#include "log_record.h"
#include "log_settings.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace device_log {
namespace {

std::mutex userLock;
UserName currentUser; // guarded by userLock

UserName user() {
    std::lock_guard<std::mutex> lock(userLock);
    return currentUser;
}

using CurrentRequest = app_log_request (*)();
std::atomic<CurrentRequest> currentRequest{nullptr};

app_log_request request() {
    const CurrentRequest current = currentRequest;
    return current != nullptr ? current() : app_log_request{};
}

void writeToStderr(std::string_view line) {
    ssize_t written;
    do {
        written = ::write(STDERR_FILENO, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    // A failure is ignored: there is no other place to report it.
}

void put(const LogSettings& where, int severity, std::string_view module, const EscapedText& text) {
    const Record record(std::time(nullptr), severity, module, request(), user(), text);
    if (where.toStderr)
        writeToStderr(record.line());
    if (where.toSyslog)
        ::syslog(severity, "%.*s", static_cast<int>(record.message().size()),
                 record.message().data());
}

__attribute__((format(printf, 1, 2))) EscapedText textOf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const EscapedText text = formatText(format, arguments);
    va_end(arguments);
    return text;
}

LogSettings readSettings() {
    const char* level = std::getenv("APP_LOG_LEVEL");
    const auto settings = LogSettings::parse(std::getenv("APP_LOG"), level);
    if (settings.toSyslog)
        ::openlog("fcgiServer", LOG_PID, LOG_DAEMON);
    if (settings.thresholdRefused)
        put(settings, LOG_WARNING, "log",
            textOf("APP_LOG_LEVEL=%s is not a level from 0 to 7; the threshold is %d", level,
                   settings.threshold));
    return settings;
}

struct Log {
    const LogSettings settings = readSettings();
    std::atomic<int> threshold{settings.threshold};
};

Log& log() {
    static Log instance;
    return instance;
}

} // namespace

void writeRecord(std::string_view module, int level, const char* format, va_list arguments) {
    if (format == nullptr)
        return;
    const int callersError = errno;
    const int severity = std::clamp(level, LOG_EMERG, LOG_DEBUG);
    if (severity <= log().threshold) {
        errno = callersError;
        put(log().settings, severity, module, formatText(format, arguments));
    }
    errno = callersError;
}

int threshold() {
    return log().threshold;
}

void setThreshold(int level) {
    log().threshold = std::clamp(level, LOG_EMERG, LOG_DEBUG);
}

void markRequests(app_log_request (*current)()) {
    currentRequest = current;
}

void setUser(const char* user) {
    const UserName escaped = escapeUser(user);
    std::lock_guard<std::mutex> lock(userLock);
    currentUser = escaped;
}

} // namespace device_log
