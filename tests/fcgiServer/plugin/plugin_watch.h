// How a test watches the test plug-in. Everything that happens in the plug-in is a record in the
// recorded log, in order with all that the container logs.
#ifndef PLUGIN_WATCH_H
#define PLUGIN_WATCH_H

#include <kit/testing/recorded_log.h>

#include <functional>
#include <string>
#include <vector>

// The test program exports it to the plug-in, which calls it after it has logged each event.
extern "C" void pluginReached(const char* event);

namespace plugin_watch {

// The module number of the plug-in's records.
constexpr int kModule = 1;

inline kit::testing::LogRecord event(std::string text) {
    return {"app_log", kModule, 6, std::move(text)};
}

// The plug-in's own records since the log was cleared.
std::vector<std::string> events();
// All the others.
std::vector<kit::testing::LogRecord> messages();

// While it lives, runs `action` in the plug-in whenever something happens there, on its thread.
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
