#include "service_manager.h"

#include "base/descriptor.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// More would not fit into the nanoseconds of a clock.
constexpr long long kMostMicroseconds =
    std::chrono::microseconds(std::chrono::hours(24 * 365)).count();

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// Returns 0 if `text` is not a number.
long long number(const std::string& text) {
    long long value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, value);
    return failure == std::errc() && rest == end ? value : 0;
}

bool send(const std::string& socketName, const std::string& state) {
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    const bool isAbstract = socketName.front() == '@';
    if ((!isAbstract && socketName.front() != '/') || socketName.size() >= sizeof where.sun_path) {
        errno = EINVAL;
        return false;
    }
    socketName.copy(where.sun_path, socketName.size());
    if (isAbstract)
        where.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketName.size());
    const base::Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return sender && sendto(sender.get(), state.data(), state.size(), MSG_NOSIGNAL,
                            reinterpret_cast<const sockaddr*>(&where),
                            length) == static_cast<ssize_t>(state.size());
}

} // namespace

ServiceManager::ServiceManager() : m_socket(variable("NOTIFY_SOCKET")) {
    const std::string watched = variable("WATCHDOG_PID");
    if (watched.empty() || number(watched) == getpid())
        m_watchdogTime = std::chrono::microseconds(
            std::clamp(number(variable("WATCHDOG_USEC")), 0LL, kMostMicroseconds));
}

bool ServiceManager::notify(const std::string& state, std::string& error) const {
    if (m_socket.empty() || send(m_socket, state))
        return true;
    error = "cannot notify the service manager at " + m_socket + ": " + std::strerror(errno);
    return false;
}
