#include "model/maintenance.h"

#include "kit/container_rules.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace phone {

using std::chrono::seconds;

const char* wordOf(Task task) {
    return kit::statusWord(static_cast<kit::DeviceStatus>(task));
}

Maintenance::Maintenance(Clock clock) : m_clock(std::move(clock)) {}

bool Maintenance::start(Task task, seconds duration, std::string server) {
    const std::lock_guard<std::mutex> lock(m_lock);
    const seconds now = m_clock();
    finish(now);
    if (m_task != Task::none) {
        return false;
    }
    m_task = task;
    m_server = std::move(server);
    m_begin = now;
    m_end = now + std::max(duration, seconds(1));
    return true;
}

Maintenance::Progress Maintenance::progress() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    const seconds now = m_clock();
    finish(now);
    if (m_task == Task::none) {
        return {};
    }
    const auto percent = (now - m_begin) * 100 / (m_end - m_begin);
    return {m_task, static_cast<int>(percent), m_end - now, m_server};
}

seconds Maintenance::upTime() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    const seconds now = m_clock();
    finish(now);
    return now - m_started;
}

std::optional<Maintenance::Provisioned> Maintenance::lastProvisioning() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    const seconds now = m_clock();
    finish(now);
    if (!m_provisioned) {
        return std::nullopt;
    }
    return Provisioned{now - *m_provisioned, m_provisionedFrom};
}

// Ends the task if its time is over, as of the moment it ended.
void Maintenance::finish(seconds now) const {
    if (m_task == Task::none || now < m_end) {
        return;
    }
    if (m_task == Task::provisioning) {
        m_provisioned = m_end;
        m_provisionedFrom = std::move(m_server);
    } else if (m_task != Task::configuration) {
        m_started = m_end;
        m_provisioned.reset();
    }
    m_task = Task::none;
}

seconds systemClock() {
    timespec sinceBoot{};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    return seconds(sinceBoot.tv_sec);
}

} // namespace phone
