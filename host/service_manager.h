// Reports to the service manager that started this process: systemd, or one with the same protocol,
// see sd_notify(3) and sd_watchdog_enabled(3).
#ifndef SERVICE_MANAGER_H
#define SERVICE_MANAGER_H

#include <chrono>
#include <string>

class ServiceManager {
public:
    // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID from the environment. Construct before
    // plug-ins, which may change it, are loaded.
    ServiceManager();

    // Sends `state`, for example "READY=1"; does nothing if no service manager asked for it.
    // Returns false on failure; `error` then says why.
    bool notify(const std::string& state, std::string& error) const;

    // Returns the time within which the watchdog expects "WATCHDOG=1", or 0 if there is none.
    std::chrono::microseconds watchdogTime() const { return m_watchdogTime; }

private:
    std::string m_socket;
    std::chrono::microseconds m_watchdogTime{0};
};

#endif
