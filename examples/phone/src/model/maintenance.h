// What the phone is busy with when it cannot be used.
#ifndef MODEL_MAINTENANCE_H
#define MODEL_MAINTENANCE_H

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

namespace phone {

// In the order of kit::DeviceStatus.
enum class Task { none, restart, factoryReset, provisioning, upgrade, configuration };

// The words of the page "notice": idle, reboot, reset, autoprovision, upgrade, configration,
// spelled as those who ask expect it. Never null.
const char* wordOf(Task task);

// A task is over by itself: there is no thread, the state follows from the clock when it is asked
// for. Any thread, at any time.
class Maintenance {
public:
    // The time since the device was switched on; it never goes back.
    using Clock = std::function<std::chrono::seconds()>;

    explicit Maintenance(Clock clock);

    struct Progress {
        Task task = Task::none;
        int percent = 100;                // 0 to 99 while there is a task
        std::chrono::seconds remaining{}; // 1 at least while there is a task
    };

    // Begins a task that takes `duration`, at least a second. False while there is another.
    // Whatever it is to change, the caller changes: this tells how long the phone is busy with it.
    bool start(Task task, std::chrono::seconds duration);

    Progress progress() const;

    // The time since the phone was started last; restart, factory reset and upgrade end with a
    // start.
    std::chrono::seconds upTime() const;

    // How long ago the last provisioning was finished; nothing when there was none since the start.
    std::optional<std::chrono::seconds> sinceProvisioning() const;

private:
    void finish(std::chrono::seconds now) const;

    const Clock m_clock;
    mutable std::mutex m_lock;
    // Guarded by m_lock. Asking brings them up to date.
    mutable Task m_task = Task::none;
    mutable std::chrono::seconds m_begin{};
    mutable std::chrono::seconds m_end{};
    mutable std::chrono::seconds m_started{};
    mutable std::optional<std::chrono::seconds> m_provisioned;
};

// The time since the device was switched on, as the system knows it.
std::chrono::seconds systemClock();

} // namespace phone

#endif
