// The device's log of the web interface: records like those of app_log() that name the signed-in
// user.
#ifndef WEB_DEBUG_H
#define WEB_DEBUG_H

class WebDebug {
public:
    // Returns the only object of the process, which lives until the process ends. Never null.
    static WebDebug* getInstance();

    // Writes one record at the syslog level of the function's name (6, 4, 3). `format` is as for
    // printf(3) and must not be null; no trailing newline is needed. Any thread, at any time.
    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Sets the user whom all later records of the process name. The text is copied; null stands for
    // no user. Any thread, at any time.
    void setUser(const char* user);
};

#endif
