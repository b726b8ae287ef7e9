// What the environment says about the log.
#ifndef LOG_SETTINGS_H
#define LOG_SETTINGS_H

namespace device_log {

struct LogSettings {
    bool toSyslog = true;
    bool toStderr = true;
    int threshold = 6; // LOG_INFO: records above it are dropped
    bool thresholdRefused = false;

    // `outputs` is "syslog" or "stderr"; anything else, null too, means both. `threshold` is one
    // digit from 0 to 7; anything else means the default, and is refused unless it is nothing.
    static LogSettings parse(const char* outputs, const char* threshold);
};

} // namespace device_log

#endif
