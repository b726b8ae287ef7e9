#include "signal_commands.h"

#include "log_control.h"
#include "loop_activity.h"
#include "notice.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "signals.h"
#include "status.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point kStart = Clock::now();

// Moves the log's threshold by `step` levels. Errors stay visible: no signal lowers it below
// LOG_ERR.
void changeLogLevel(int step) {
    if (app_log_threshold == nullptr || app_log_set_threshold == nullptr) {
        logNotice("this device's log has no threshold to change");
        return;
    }
    const int before = app_log_threshold();
    const int after = std::clamp(before + step, std::min(before, LOG_ERR), LOG_DEBUG);
    app_log_set_threshold(after);
    logNotice("threshold level=" + std::to_string(after) + " before=" + std::to_string(before));
}

void logStatus(FCGIServer& server, const RequestLoops& loops) {
    Status status;
    status.uptime = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - kStart);
    const LoopActivity activity = loopActivity();
    status.requests = activity.requests;
    status.busyLoops = activity.busy;
    status.loops = loops.count();
    status.sessions = server.getController()->getSessionFactory()->sessionNum();
    status.memory = processMemory();
    logNotice(statusLine(status));
}

} // namespace

void handleSignal(int signal, FCGIServer& server, const RequestLoops& loops) {
    if (signal == kStatusSignal)
        logStatus(server, loops);
    else if (signal == kRaiseLogLevelSignal)
        changeLogLevel(+1);
    else if (signal == kLowerLogLevelSignal)
        changeLogLevel(-1);
}
