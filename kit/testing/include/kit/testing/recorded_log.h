// Takes the place of the device's log in a test program and keeps what was logged.
#ifndef KIT_TESTING_RECORDED_LOG_H
#define KIT_TESTING_RECORDED_LOG_H

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kit::testing {

// One log call.
struct LogRecord {
    std::string call; // "app_log", "info", "warn", "error" or "setUser"
    int module;       // 0 except for app_log
    int level;        // as the module
    std::string text; // of setUser the name, "(null)" for null

    // Equal in everything.
    bool operator==(const LogRecord& other) const {
        return call == other.call && module == other.module && level == other.level &&
               text == other.text;
    }
};

// Writes it in one line, for the messages of tests.
std::ostream& operator<<(std::ostream& out, const LogRecord& record);

namespace recorded_log {

// Everything logged since the last clear(), in order. Any thread may log; read it when the others
// have ended.
std::vector<LogRecord> records();
// Forgets everything logged so far.
void clear();

// A record as app_log of the servlet container makes it.
inline LogRecord appLog(int level, std::string text) {
    return {"app_log", 65, level, std::move(text)};
}
// A record as WebDebug makes it; `call` as in LogRecord.
inline LogRecord webDebug(std::string call, std::string text) {
    return {std::move(call), 0, 0, std::move(text)};
}

} // namespace recorded_log

} // namespace kit::testing

#endif
