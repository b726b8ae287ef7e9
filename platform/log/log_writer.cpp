#include "log_writer.h"

#include "log_record.h"
#include "log_settings.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
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

LogSettings readSettings() {
    const auto settings = LogSettings::parse(std::getenv("APP_LOG"), std::getenv("APP_LOG_LEVEL"));
    if (settings.toSyslog)
        ::openlog("fcgiServer", LOG_PID, LOG_DAEMON);
    return settings;
}

const LogSettings& settings() {
    static const LogSettings instance = readSettings();
    return instance;
}

void writeToStderr(std::string_view line) {
    ssize_t written;
    do {
        written = ::write(STDERR_FILENO, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    // There is nobody to tell about a record that is lost.
}

} // namespace

void writeRecord(std::string_view module, int level, const char* format, va_list arguments) {
    if (format == nullptr)
        return;
    const int callersError = errno;
    const int severity = std::clamp(level, LOG_EMERG, LOG_DEBUG);
    const LogSettings& where = settings();
    if (severity <= where.threshold) {
        errno = callersError;
        const EscapedText text = formatText(format, arguments);
        const Record record(std::time(nullptr), severity, module, user(), text);
        if (where.toStderr)
            writeToStderr(record.line());
        if (where.toSyslog)
            ::syslog(severity, "%.*s", static_cast<int>(record.message().size()),
                     record.message().data());
    }
    errno = callersError;
}

void setUser(const char* user) {
    const UserName escaped = escapeUser(user);
    std::lock_guard<std::mutex> lock(userLock);
    currentUser = escaped;
}

} // namespace device_log
