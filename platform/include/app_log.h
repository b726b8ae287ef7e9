// The device's log, as C code sees it.
#ifndef APP_LOG_H
#define APP_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes one record if `level` is at or below the threshold.
//   module   the number of the module that speaks; the servlet container is 65.
//   level    a level of syslog(3): 3 error, 4 warning, 6 information.
//   format   as printf(3); one trailing newline is dropped. Must not be null.
//   Output   one line and one write a record, whatever threads log at once. Control characters
//            inside the record are escaped, so that no client can forge a line.
//   Set by   the environment, read at the first record: APP_LOG ("syslog", "stderr", or both,
//            the default) and APP_LOG_LEVEL (the threshold, 0 to 7, default 6; what is no level
//            is told in a record of its own). A host may change the threshold: log_control.h.
//   Threads  any, at any time. errno is kept.
void app_log(int module, int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
