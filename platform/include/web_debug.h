// The device's log of the web interface: the same records as app_log, attributed to the user
// who is signed in.
#ifndef WEB_DEBUG_H
#define WEB_DEBUG_H

class WebDebug {
public:
    // The one object of the process; never null, lives until the process ends.
    static WebDebug* getInstance();

    // One record each, at the syslog level of its name (6, 4, 3). `format` is as printf(3) and
    // must not be null; no trailing newline is needed. Any thread, at any time.
    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Names the user whom later records of the whole process mention; the text is copied. Null:
    // records name no user from now on. Any thread.
    void setUser(const char* user);
};

#endif
