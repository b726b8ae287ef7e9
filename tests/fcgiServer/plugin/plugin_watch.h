// Lets a test watch the test plug-in, which adds a record to the recorded log for every call, in
// order with what the container logs.
#ifndef PLUGIN_WATCH_H
#define PLUGIN_WATCH_H

#include <kit/testing/recorded_log.h>

#include <functional>
#include <string>
#include <vector>

// Exported by the test program; the plug-in calls it after it has logged an event.
extern "C" void pluginReached(const char* event);

namespace plugin_watch {

// The module number of the plug-in's records.
constexpr int kModule = 1;

inline kit::testing::LogRecord event(std::string text) {
    return {"app_log", kModule, 6, std::move(text)};
}

// Returns the plug-in's records since the log was cleared.
std::vector<std::string> events();
// Returns all other records.
std::vector<kit::testing::LogRecord> messages();

// While this object exists, every event in the plug-in calls `action`, on the thread of the event.
// `action` must not throw.
class OnEvent {
public:
    explicit OnEvent(std::function<void(const std::string&)> action);
    ~OnEvent();
    OnEvent(const OnEvent&) = delete;
    OnEvent& operator=(const OnEvent&) = delete;
};

} // namespace plugin_watch

#endif
