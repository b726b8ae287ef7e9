#include "accept_gate.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

constexpr auto kDrainLimit = std::chrono::seconds(1);
constexpr auto kDrainStep = std::chrono::milliseconds(2);

// A socket that is bound to all addresses is reachable at the loopback address.
void makeReachable(SocketAddress& address) {
    if (address.family() == AF_INET) {
        auto* where = reinterpret_cast<sockaddr_in*>(&address.storage);
        if (where->sin_addr.s_addr == htonl(INADDR_ANY))
            where->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else if (address.family() == AF_INET6) {
        auto* where = reinterpret_cast<sockaddr_in6*>(&address.storage);
        if (IN6_IS_ADDR_UNSPECIFIED(&where->sin6_addr))
            where->sin6_addr = in6addr_loopback;
    }
}

} // namespace

std::optional<AcceptGate> AcceptGate::open(std::optional<BoundSocket> bound, std::string& error) {
    const int source = bound ? bound->get() : kListenFd;
    base::Descriptor listener(fcntl(source, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!listener || (bound && dup2(source, kListenFd) < 0)) {
        error = std::string("cannot duplicate the listening socket: ") + std::strerror(errno);
        return std::nullopt;
    }
    return AcceptGate(std::move(listener), std::move(bound));
}

bool AcceptGate::hasPendingConnection() const {
    pollfd backlog{m_listener.get(), POLLIN, 0};
    return poll(&backlog, 1, 0) > 0 && (backlog.revents & POLLIN) != 0;
}

void AcceptGate::close() {
    assert(!m_isClosed); // call once
    m_isClosed = true;
    if (m_bound) {
        m_bound->removeFile();
        const auto deadline = std::chrono::steady_clock::now() + kDrainLimit;
        while (hasPendingConnection() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(kDrainStep);
    }
    // Not just closed: the next file to be opened would get the number. accept(2) refuses what is
    // not a socket.
    const base::Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nothing || dup2(nothing.get(), kListenFd) < 0)
        ::close(kListenFd);
}

bool AcceptGate::connectToSelf() const {
    SocketAddress address;
    address.length = sizeof address.storage;
    if (getsockname(m_listener.get(), address.get(), &address.length) != 0)
        return false;
    makeReachable(address);
    const base::Descriptor client(
        socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Closed on return: the thread that accepts it reads end-of-file and goes on.
    return client && (connect(client.get(), address.get(), address.length) == 0 ||
                      errno == EINPROGRESS || errno == EAGAIN);
}

void AcceptGate::wake(const RequestLoops& loops) {
    assert(m_isClosed); // call after close()
    if (m_bound) {
        // No other process accepts from it, so it may be shut down: accept(2) fails.
        shutdown(m_listener.get(), SHUT_RD);
        return;
    }
    // While a connection is pending no thread waits in accept(2), and one more would only delay the
    // clients of other processes.
    if (!hasPendingConnection() && !connectToSelf())
        loops.interrupt(); // the socket file was removed, so there is nothing to connect to
}
