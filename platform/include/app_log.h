// The device's log, for C code.
#ifndef APP_LOG_H
#define APP_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes one record if `level` is at or below the threshold.
//   module    number of the module that writes; the servlet container is 65.
//   level     level of syslog(3): 3 error, 4 warning, 6 information. Clamped to 0 to 7.
//   format    as for printf(3); one trailing newline is dropped. Must not be null.
//   Output    one line and one write for each record, whatever threads log at once. Control
//             characters in the record are escaped, so that no client can forge a line.
//   Settings  the environment, read at the first record: APP_LOG ("syslog" or "stderr"; anything
//             else means both) and APP_LOG_LEVEL (the threshold, 0 to 7; 6 unless set). A threshold
//             that is not a level is reported in a record. A host may change the threshold later:
//             see log_control.h.
//   Threads   any, at any time. Keeps errno.
void app_log(int module, int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
