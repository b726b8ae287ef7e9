// The settings of the log, from the environment.
#ifndef LOG_SETTINGS_H
#define LOG_SETTINGS_H

namespace device_log {

struct LogSettings {
    bool toSyslog = true;
    bool toStderr = true;
    int threshold = 6;             // LOG_INFO: records above it are dropped
    bool thresholdRefused = false; // a threshold was given that is not a level

    // Returns the settings for the values of APP_LOG and APP_LOG_LEVEL, which may be null.
    // `outputs` is "syslog" or "stderr"; anything else means both. `threshold` is one digit from 0
    // to 7; anything else means the default, and is refused unless it is null or empty.
    static LogSettings parse(const char* outputs, const char* threshold);
};

} // namespace device_log

#endif
