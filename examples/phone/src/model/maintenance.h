// Tasks during which the phone cannot be used.
#ifndef MODEL_MAINTENANCE_H
#define MODEL_MAINTENANCE_H

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace phone {

// In the order of kit::DeviceStatus.
enum class Task { none, restart, factoryReset, provisioning, upgrade, configuration };

// Returns the status word of a task: idle, reboot, reset, autoprovision, upgrade or configration,
// spelled as clients expect. Never null.
const char* wordOf(Task task);

// No thread runs: a task ends when the clock says so, and each call computes the state.
// Thread-safe.
class Maintenance {
public:
    // Returns the time since the device was switched on; must not go back.
    using Clock = std::function<std::chrono::seconds()>;

    explicit Maintenance(Clock clock);

    struct Progress {
        Task task = Task::none;
        int percent = 100;                // 0 to 99 while a task is running
        std::chrono::seconds remaining{}; // at least 1 while a task is running
        std::string server;               // as passed to start()
    };

    // Begins a task that takes `duration`; less than a second counts as one. Returns false while
    // another one is running. Only reports the phone as busy; the caller makes the changes.
    // `server` is where a provisioning gets its settings from.
    bool start(Task task, std::chrono::seconds duration, std::string server = {});

    Progress progress() const;

    // Returns the time since the phone last started. Restart, factory reset and upgrade end with a
    // start.
    std::chrono::seconds upTime() const;

    struct Provisioned {
        std::chrono::seconds ago;
        std::string server;
    };

    // Returns the last provisioning that finished; nothing if there was none since the phone
    // started.
    std::optional<Provisioned> lastProvisioning() const;

private:
    void finish(std::chrono::seconds now) const;

    const Clock m_clock;
    mutable std::mutex m_lock;
    // Guarded by m_lock; brought up to date by each call.
    mutable Task m_task = Task::none;
    mutable std::chrono::seconds m_begin{};
    mutable std::chrono::seconds m_end{};
    mutable std::chrono::seconds m_started{};
    mutable std::string m_server;
    mutable std::optional<std::chrono::seconds> m_provisioned;
    mutable std::string m_provisionedFrom;
};

// Returns the time since the device was switched on (CLOCK_BOOTTIME).
std::chrono::seconds systemClock();

} // namespace phone

#endif
