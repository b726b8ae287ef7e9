#include "accept_gate.h"
#include "temporary_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/un.h>

#include <cerrno>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Request loops as the container runs them: one at a time accepts, all serve at once. A request is
// one line, and so is its response.
class Service {
public:
    Service(AcceptGate& gate, int threads) : m_gate(gate), m_loops([this] { run(); }, threads) {}

    // Returns whether all loops have ended within `limit`.
    bool stop(std::chrono::milliseconds limit = 10s) {
        m_loops.stop();
        m_gate.close();
        return waitForEnd(limit);
    }

    bool waitForEnd(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        do {
            m_gate.wake(m_loops);
            if (m_loops.waitForEnd(10ms))
                return true;
        } while (std::chrono::steady_clock::now() < deadline);
        return false;
    }

private:
    void run() {
        for (;;) {
            const base::Descriptor connection = acceptNext();
            if (!connection)
                return;
            char line[16];
            if (read(connection.get(), line, sizeof line) > 0) {
                EXPECT_EQ(write(connection.get(), "answer\n", 7), 7);
            }
        }
    }

    base::Descriptor acceptNext() {
        const std::lock_guard lock(m_acceptLock);
        int fd = -1;
        do
            fd = accept(kListenFd, nullptr, nullptr);
        while (fd < 0 && errno == EINTR);
        return base::Descriptor(fd);
    }

    AcceptGate& m_gate;
    std::mutex m_acceptLock;
    RequestLoops m_loops;
};

class Client {
public:
    explicit Client(const SocketAddress& address)
        : m_socket(socket(address.family(), SOCK_STREAM, 0)) {
        const timeval patience{10, 0};
        setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(m_socket.get(), address.get(), address.length), 0);
    }
    void send() { EXPECT_EQ(write(m_socket.get(), "request\n", 8), 8); }
    std::string receive() {
        char line[16];
        const ssize_t count = read(m_socket.get(), line, sizeof line);
        return std::string(line, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

private:
    base::Descriptor m_socket;
};

class AcceptGates : public testing::Test {
protected:
    AcceptGates() : m_standardInput(fcntl(0, F_DUPFD, 100)) {}
    ~AcceptGates() override {
        if (m_standardInput)
            dup2(m_standardInput.get(), 0);
    }

    static SocketAddress parse(const std::string& text) {
        std::string error;
        return parseSocketAddress(text, error).value();
    }
    std::string path() const { return m_folder.file("socket"); }
    SocketAddress address() const { return parse(path()); }

    // Opens a listening socket, as --listen does.
    BoundSocket openSocket() {
        std::string error;
        auto bound = BoundSocket::open(address(), {}, error);
        EXPECT_TRUE(bound) << error;
        return std::move(bound).value();
    }
    static AcceptGate gate(std::optional<BoundSocket> bound) {
        std::string error;
        auto gate = AcceptGate::open(std::move(bound), error);
        EXPECT_TRUE(gate) << error;
        return std::move(gate).value();
    }
    // Returns the gate of a socket that a supervisor has open too.
    static AcceptGate sharedGate(const BoundSocket& supervisor) {
        dup2(supervisor.get(), kListenFd);
        return gate(std::nullopt);
    }

    TemporaryFolder m_folder;
    base::Descriptor m_standardInput;
};

bool hasPendingConnection(int fd) {
    pollfd backlog{fd, POLLIN, 0};
    return poll(&backlog, 1, 0) > 0;
}

TEST_F(AcceptGates, ServeRequestsUntilClosed) {
    AcceptGate bound = gate(openSocket());
    Service service(bound, 2);
    for (int i = 0; i < 5; ++i) {
        Client client(address());
        client.send();
        EXPECT_EQ(client.receive(), "answer\n");
    }
    EXPECT_TRUE(service.stop());
}

TEST_F(AcceptGates, EndLoopsThatWaitOnABoundSocketAndRemoveItsFile) {
    AcceptGate bound = gate(openSocket());
    Service service(bound, 4);
    std::this_thread::sleep_for(50ms); // so that one waits in accept(2)
    EXPECT_TRUE(service.stop());
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_FALSE(isListening(kListenFd));
}

TEST_F(AcceptGates, EndLoopsThatWaitOnASharedSocketAndLeaveItListening) {
    const BoundSocket supervisor = openSocket();
    AcceptGate shared = sharedGate(supervisor);
    {
        Service service(shared, 4);
        std::this_thread::sleep_for(50ms);
        EXPECT_TRUE(service.stop());
    }
    EXPECT_TRUE(isListening(supervisor.get()));
    EXPECT_TRUE(std::filesystem::exists(path()));
    EXPECT_FALSE(isListening(kListenFd));
}

TEST_F(AcceptGates, EndLoopsThatWaitOnASharedSocketWhoseFileWasRemoved) {
    const BoundSocket supervisor = openSocket();
    AcceptGate shared = sharedGate(supervisor);
    Service service(shared, 4);
    std::this_thread::sleep_for(50ms);
    std::filesystem::remove(path());
    EXPECT_TRUE(service.stop());
}

TEST_F(AcceptGates, EndLoopsThatWaitOnAllAddressesOfAPort) {
    // IPv4 only, since a machine may lack IPv6.
    std::string error;
    std::optional<BoundSocket> supervisor;
    for (int port = 20000; !supervisor && port < 60000; port += 97)
        supervisor = BoundSocket::open(parse("0.0.0.0:" + std::to_string(port)), {}, error);
    ASSERT_TRUE(supervisor) << error;
    AcceptGate shared = sharedGate(*supervisor);
    Service service(shared, 2);
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(service.stop());
}

TEST_F(AcceptGates, LeavePendingConnectionsOfASharedSocketToTheNextProcess) {
    const BoundSocket supervisor = openSocket();
    AcceptGate first = sharedGate(supervisor);
    first.close(); // before any connection was accepted
    Client client(address());
    client.send();
    AcceptGate next = sharedGate(supervisor);
    Service service(next, 1);
    EXPECT_EQ(client.receive(), "answer\n");
    EXPECT_TRUE(service.stop());
}

TEST_F(AcceptGates, ServePendingConnectionsOfABoundSocket) {
    AcceptGate bound = gate(openSocket());
    std::vector<Client> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(address());
        clients.back().send();
    }
    Service service(bound, 1);
    EXPECT_TRUE(service.stop());
    for (Client& client : clients)
        EXPECT_EQ(client.receive(), "answer\n");
}

TEST_F(AcceptGates, WaitForARequestInFlight) {
    const BoundSocket supervisor = openSocket();
    AcceptGate shared = sharedGate(supervisor);
    Service service(shared, 1);
    Client client(address());
    while (hasPendingConnection(supervisor.get()))
        std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(service.stop(200ms)) << "its request has not arrived yet";
    client.send();
    EXPECT_EQ(client.receive(), "answer\n");
    EXPECT_TRUE(service.waitForEnd(10s));
}

TEST_F(AcceptGates, AddAtMostOnePendingConnectionOfTheirOwn) {
    const BoundSocket supervisor = openSocket();
    AcceptGate shared = sharedGate(supervisor);
    Service service(shared, 1);
    Client busy(address());
    while (hasPendingConnection(supervisor.get()))
        std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(service.stop(300ms)) << "the only loop serves, none accepts";
    int pending = 0;
    for (; hasPendingConnection(supervisor.get()); ++pending)
        base::Descriptor(accept(supervisor.get(), nullptr, nullptr));
    EXPECT_LE(pending, 1);
    busy.send();
    EXPECT_TRUE(service.waitForEnd(10s));
}

} // namespace
