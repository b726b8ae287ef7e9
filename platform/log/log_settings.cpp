#include "log_settings.h"

#include <string_view>

namespace device_log {

LogSettings LogSettings::parse(const char* outputs, const char* threshold) {
    LogSettings settings;
    const std::string_view wanted = outputs != nullptr ? outputs : "";
    settings.toSyslog = wanted != "stderr";
    settings.toStderr = wanted != "syslog";
    const std::string_view level = threshold != nullptr ? threshold : "";
    if (level.size() == 1 && level.front() >= '0' && level.front() <= '7')
        settings.threshold = level.front() - '0';
    else
        settings.thresholdRefused = !level.empty();
    return settings;
}

} // namespace device_log
