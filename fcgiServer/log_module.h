// The container's number among the modules that write to the device's log; see app_log.h. Levels
// are those of <syslog.h>. Internal: not installed.
#ifndef LOG_MODULE_H
#define LOG_MODULE_H

constexpr int kLogModule = 65;

#endif
