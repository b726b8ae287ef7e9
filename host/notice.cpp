#include "notice.h"

#include "app_log.h"
#include "log_control.h"

#include <syslog.h>

#include <algorithm>

namespace {

constexpr int kLogModule = 65;

} // namespace

void logNotice(const std::string& text) {
    int level = LOG_NOTICE;
    if (app_log_threshold != nullptr)
        level = std::min(level, app_log_threshold());
    app_log(kLogModule, level, "fcgi_host: %s\n", text.c_str());
}
