#include "accept_gate.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

constexpr auto kDrainLimit = std::chrono::seconds(1);
constexpr auto kDrainStep = std::chrono::milliseconds(2);

// A socket bound to all addresses is reached by the loopback one.
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

std::optional<AcceptGate> AcceptGate::open(std::optional<OwnSocket> own, std::string& error) {
    const int source = own ? own->get() : kListenFd;
    Descriptor listener(fcntl(source, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!listener || (own && dup2(source, kListenFd) < 0)) {
        error = std::string("cannot duplicate the listening socket: ") + std::strerror(errno);
        return std::nullopt;
    }
    return AcceptGate(std::move(listener), std::move(own));
}

bool AcceptGate::somebodyInLine() const {
    pollfd line{m_listener.get(), POLLIN, 0};
    return poll(&line, 1, 0) > 0 && (line.revents & POLLIN) != 0;
}

void AcceptGate::close() {
    if (m_own) {
        m_own->removeFile();
        const auto deadline = std::chrono::steady_clock::now() + kDrainLimit;
        while (somebodyInLine() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(kDrainStep);
    }
    // Whatever stands at the descriptor instead: accept(2) refuses what is no socket.
    const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nothing || dup2(nothing.get(), kListenFd) < 0)
        ::close(kListenFd);
}

bool AcceptGate::connectOnce() const {
    SocketAddress address;
    address.length = sizeof address.storage;
    if (getsockname(m_listener.get(), address.get(), &address.length) != 0)
        return false;
    makeReachable(address);
    const Descriptor client(
        socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Closed at once: who accepts it finds the end of the connection and goes on.
    return client && (connect(client.get(), address.get(), address.length) == 0 ||
                      errno == EINPROGRESS || errno == EAGAIN);
}

void AcceptGate::wake(const RequestLoops& loops) {
    if (m_own) {
        // Nobody else accepts from it, so this harms nobody: accept(2) fails.
        shutdown(m_listener.get(), SHUT_RD);
        return;
    }
    // While a client is in line no thread waits; one more would only be in the way of others.
    if (!somebodyInLine() && !connectOnce())
        loops.interrupt(); // the socket file is gone: nobody can connect any more
}
