// Where the records of app_log and WebDebug meet and leave the process.
#ifndef LOG_WRITER_H
#define LOG_WRITER_H

#include "log_control.h"

#include <cstdarg>
#include <string_view>

namespace device_log {

// Writes one record: one write(2) to standard error, one syslog(3) call. `level` is clamped to 0
// to 7; a null format writes nothing. Any thread, at any time; errno is kept, and "%m" in the
// format is the caller's error.
void writeRecord(std::string_view module, int level, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

// Up to which level records are written. Any thread, at any time.
int threshold();
// Clamped to 0 to 7.
void setThreshold(int level);

// Who tells which request a thread serves; null: nobody.
void markRequests(app_log_request (*current)());

// The user whom all later records of the process name; null or an empty name: none. Copied.
void setUser(const char* user);

} // namespace device_log

#endif
