// Replaces the device's log in a test program and records what is logged.
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
    int level;        // 0 except for app_log
    std::string text; // for setUser the user's name, or "(null)"

    // Compares all members.
    bool operator==(const LogRecord& other) const {
        return call == other.call && module == other.module && level == other.level &&
               text == other.text;
    }
};

// Writes the record as one line, for test failures.
std::ostream& operator<<(std::ostream& out, const LogRecord& record);

namespace recorded_log {

// Returns everything logged since the last clear(), in order. Any thread, at any time; to be sure
// that a thread's records are in it, wait until that thread has ended.
std::vector<LogRecord> records();
// Removes everything logged so far.
void clear();

// Returns the record that app_log() makes when the container calls it.
inline LogRecord appLog(int level, std::string text) {
    constexpr int kContainerModule = 65;
    return {"app_log", kContainerModule, level, std::move(text)};
}
// Returns the record that the operation `call` of WebDebug makes: "info", "warn" or "error".
inline LogRecord webDebug(std::string call, std::string text) {
    return {std::move(call), 0, 0, std::move(text)};
}

} // namespace recorded_log

} // namespace kit::testing

#endif
