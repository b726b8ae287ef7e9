#include "plugin/plugin_watch.h"

#include <utility>

using namespace kit::testing;

namespace {

std::function<void(const std::string&)> currentAction;

} // namespace

void pluginReached(const char* event) {
    if (currentAction)
        currentAction(event);
}

std::vector<std::string> plugin_watch::events() {
    std::vector<std::string> result;
    for (const LogRecord& record : recorded_log::records())
        if (record.call == "app_log" && record.module == kModule)
            result.push_back(record.text);
    return result;
}

std::vector<LogRecord> plugin_watch::messages() {
    std::vector<LogRecord> result;
    for (LogRecord& record : recorded_log::records())
        if (record.call != "app_log" || record.module == 65)
            result.push_back(std::move(record));
    return result;
}

plugin_watch::OnEvent::OnEvent(std::function<void(const std::string&)> action) {
    currentAction = std::move(action);
}

plugin_watch::OnEvent::~OnEvent() {
    currentAction = nullptr;
}
