// Changes of the network that could lock the administrator out.
#ifndef MODEL_NETWORK_TRIAL_H
#define MODEL_NETWORK_TRIAL_H

#include "model/device.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace phone {

// Returns the address at which the phone is reached with these settings.
std::string addressOf(const Network& network);

// A change of address, subnet mask, gateway or VLAN is on trial: it is undone unless it is
// confirmed from the new address within kTime. A trial survives a restart of the daemon. No thread
// runs: call settle() before each request is served. Thread-safe.
class NetworkTrial {
public:
    // Returns the time since the device was switched on.
    using Clock = std::function<std::chrono::seconds()>;
    static constexpr std::chrono::seconds kTime{120};

    struct Running {
        std::string address; // the new one
        std::chrono::seconds remaining;
    };

    // `device` must outlive this object. `path` is the file of the running trial. Undoes a change
    // whose time ended while the daemon was not running, or with a restart of the device.
    NetworkTrial(Device& device, std::string path, Clock clock);

    // As Device::change(). Starts a trial if the edit changes how the phone is reached; a further
    // change during a trial prolongs it and is undone with it. Restoring the previous settings ends
    // it. Cancels the change if the trial cannot be saved.
    Outcome change(const Device::Edit& edit);

    // Undoes the change on trial if its time is over.
    void settle();

    // Returns nothing if there is no trial.
    std::optional<Running> running() const;

    // Ends the trial and keeps the change if `host`, under which the client reached the phone, is
    // the new address. Returns false for any other, and without a trial.
    bool confirm(const std::string& host);

    // Undoes the change at once. Does nothing without a trial.
    Outcome undo();

    // Ends the trial without a change of settings, after they have been reset.
    void forget();

    // Returns the address of the last change that was undone because its time was over; empty if
    // there was none since the start of the daemon, or since the last change.
    std::string undoneAddress() const;

private:
    struct Trial {
        Network previous;
        Network tried;
        std::chrono::seconds begun;
    };

    std::optional<Trial> load() const;
    bool store(const std::optional<Trial>& trial) const;
    std::optional<Trial> trialAfter(const Network& before, const Network& after) const;
    Outcome rollBack();
    void end();

    Device& m_device;
    const std::string m_path;
    const Clock m_clock;
    mutable std::mutex m_lock; // lock before calling m_device
    // Guarded by m_lock.
    std::optional<Trial> m_trial;
    std::string m_undoneAddress;
    std::chrono::seconds m_nextAttempt{}; // of a rollback, after one could not be saved
};

} // namespace phone

#endif
