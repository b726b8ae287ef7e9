// Writes the records of app_log() and WebDebug to standard error and the system log.
#ifndef LOG_WRITER_H
#define LOG_WRITER_H

#include "log_control.h"

#include <cstdarg>
#include <string_view>

namespace device_log {

// Writes one record with one write(2) to standard error and one call of syslog(3). `level` is
// clamped to 0 to 7; a null format writes nothing. Keeps errno, so "%m" in the format is the
// caller's error. Any thread, at any time.
void writeRecord(std::string_view module, int level, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

// Returns the threshold: records of a higher level are dropped. Any thread, at any time.
int threshold();
// Sets the threshold; `level` is clamped to 0 to 7. Any thread, at any time.
void setThreshold(int level);

// Registers the callback that returns the request being served by the calling thread; null for
// none. Any thread, at any time.
void markRequests(app_log_request (*current)());

// Sets the user whom all later records of the process name; null or an empty name for none. The
// name is copied. Any thread, at any time.
void setUser(const char* user);

} // namespace device_log

#endif
