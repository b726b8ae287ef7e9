// How a host steers the device's log. A log library of a device's own may do without: each of these
// functions is null where it is missing, so ask before the call.
#ifndef LOG_CONTROL_H
#define LOG_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

// The level up to which records are written, 0 to 7. Any thread, at any time.
int app_log_threshold(void) __attribute__((weak));

// Another threshold from the next record on; a level out of range is taken as the nearest. Any
// thread, at any time.
void app_log_set_threshold(int level) __attribute__((weak));

// The request that a thread serves.
typedef struct {
    int thread;           // from 1
    unsigned long number; // 0: none
} app_log_request;

// From the next record on, `current` is asked which request the thread serves that writes it, and
// the record says so. It must not write a record itself. Null, as at first: no record says so. Any
// thread, at any time.
// NOLINTNEXTLINE(modernize-redundant-void-arg): C reads it, too
void app_log_mark_requests(app_log_request (*current)(void)) __attribute__((weak));

#ifdef __cplusplus
}
#endif

#endif
