// How a host controls the device's log. A device maker's own log library need not have these
// functions; they are weak, so compare their address with null before the call.
#ifndef LOG_CONTROL_H
#define LOG_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

// Returns the threshold: records of a higher level than this, 0 to 7, are dropped. Any thread, at
// any time.
int app_log_threshold(void) __attribute__((weak));

// Sets the threshold for all later records; a level out of range becomes the nearest one in range.
// Any thread, at any time.
void app_log_set_threshold(int level) __attribute__((weak));

// Identifies the request that a thread serves.
typedef struct {
    int thread;           // from 1
    unsigned long number; // 0: no request
} app_log_request;

// Registers a callback that returns the request being served by the calling thread; later records
// include it. The callback must not log. Null, the initial value, leaves requests out of records.
// Any thread, at any time.
// NOLINTNEXTLINE(modernize-redundant-void-arg): C reads it, too
void app_log_mark_requests(app_log_request (*current)(void)) __attribute__((weak));

#ifdef __cplusplus
}
#endif

#endif
