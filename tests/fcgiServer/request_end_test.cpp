// The end of a request on a real connection, through libfcgi: who closes the connection, and when.
// tests/wire/test_unread_bodies.py tests the same from the front servers' side.
#include "fcgi_server.h"

#include "support/controller_members.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kSoon = 10s; // a failing test waits that long, others do not

// The clock that the server's thread sees: it stands still until a test advances it, so that no
// test waits for the server's own time-out.
namespace server_clock {

thread_local bool isSeenByThisThread = false;
std::atomic<milliseconds> now{0ms};
std::atomic<unsigned> looks{0}; // of the server, for something to read, while it lingers

void reset() {
    now = 0ms;
    looks = 0;
}
void advance(milliseconds time) {
    now = now.load() + time;
}

} // namespace server_clock

// Returns whether the server lingers. Two more looks show that it has compared the clock with its
// deadline since the call, and goes on waiting.
bool serverLingers() {
    const unsigned before = server_clock::looks;
    const auto limit = SteadyClock::now() + kSoon;
    while (server_clock::looks < before + 2 && SteadyClock::now() < limit)
        std::this_thread::sleep_for(1ms);
    return server_clock::looks >= before + 2;
}

} // namespace

// The linker puts these in the place of poll(2) and std::chrono::steady_clock::now().
extern "C" {
int __real_poll(pollfd* polled, nfds_t count, int timeout);
int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    if (!server_clock::isSeenByThisThread)
        return __real_poll(polled, count, timeout);
    const auto deadline = server_clock::now.load() + milliseconds(timeout);
    for (;;) {
        const int ready = __real_poll(polled, count, 1);
        ++server_clock::looks;
        const bool timedOut = timeout >= 0 && server_clock::now.load() >= deadline;
        if (ready != 0 || timedOut)
            return ready;
    }
}

SteadyClock::time_point __real__ZNSt6chrono3_V212steady_clock3nowEv();
SteadyClock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return server_clock::isSeenByThisThread ? SteadyClock::time_point(server_clock::now.load())
                                            : __real__ZNSt6chrono3_V212steady_clock3nowEv();
}
}

namespace {

using Variables = std::map<std::string, std::string>;

constexpr int kListenSocket = 0;
// Long enough for a server that closes at once; one that closes late is seen by its clock.
constexpr auto kAWhile = 100ms;

// Records of FastCGI 1.0, all of request 1.
enum RecordType : char { BEGIN = 1, END = 3, PARAMS = 4, STDIN = 5, STDOUT = 6 };

std::string record(RecordType type, const std::string& content) {
    const char header[] = {
        1, type, 0, 1, static_cast<char>(content.size() >> 8), static_cast<char>(content.size()),
        0, 0};
    return std::string(header, sizeof header) + content;
}

std::string begin(const Variables& variables, bool keepConnection = false) {
    std::string params;
    for (const auto& [name, value] : variables)
        params += static_cast<char>(name.size()) + (static_cast<char>(value.size()) + name) + value;
    const char responder[] = {0, 1, static_cast<char>(keepConnection), 0, 0, 0, 0, 0};
    return record(BEGIN, std::string(responder, sizeof responder)) + record(PARAMS, params) +
           record(PARAMS, "");
}

Variables with(Variables more) {
    more.insert({{"REQUEST_METHOD", "POST"},
                 {"REQUEST_URI", "/servlet?q=1"},
                 {"QUERY_STRING", "q=1"},
                 {"REMOTE_ADDR", "10.0.0.5"},
                 {"CONTENT_TYPE", "application/octet-stream"}});
    return more;
}

// A front server's end of a connection.
class Connection {
public:
    explicit Connection(const sockaddr_un& address, socklen_t size)
        : m_socket(socket(AF_UNIX, SOCK_STREAM, 0)) {
        EXPECT_EQ(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
    }
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool send(const std::string& bytes) {
        return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    void close() {
        if (m_socket >= 0)
            ::close(m_socket);
        m_socket = -1;
    }

    // Returns what the page wrote, up to the record that ends the request; empty if none ends it.
    std::string response() {
        std::string page;
        for (;;) {
            const std::string header = receive(8);
            if (header.empty())
                return {};
            const auto byte = [&](std::size_t at) {
                return static_cast<unsigned char>(header[at]);
            };
            const std::string content = receive(byte(4) * 256u + byte(5));
            receive(byte(6));
            if (header[1] == STDOUT)
                page += content;
            if (header[1] == END)
                return page;
        }
    }

    // Return whether the server sends no more but still reads, does neither, or does both.
    bool isHalfClosed() const {
        return becomes(POLLRDHUP, kSoon) && serverLingers() && !becomes(POLLHUP, 0ms);
    }
    bool isClosed() const { return becomes(POLLHUP, kSoon); }
    bool isOpen() const { return !becomes(POLLRDHUP, kAWhile); }

private:
    std::string receive(std::size_t size) const {
        std::string bytes(size, '\0');
        pollfd polled{m_socket, POLLIN, 0};
        std::size_t have = 0;
        while (have < size) {
            if (poll(&polled, 1, 10000) <= 0)
                return {};
            const ssize_t more = read(m_socket, &bytes[have], size - have);
            if (more <= 0)
                return {};
            have += static_cast<std::size_t>(more);
        }
        return bytes;
    }
    bool becomes(short state, milliseconds within) const {
        pollfd polled{m_socket, state, 0};
        return poll(&polled, 1, static_cast<int>(within.count())) > 0;
    }

    int m_socket;
};

// The server on a non-blocking socket: accepting fails once no client is connecting, so that run()
// returns after the last request.
class RequestEnd : public testing::Test {
protected:
    RequestEnd() {
        server_clock::reset();
        // As the host sets it, so that libfcgi itself does not wait.
        setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", 1);
        const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        // Without a name the system chooses an unused abstract address, and creates no file.
        auto* address = reinterpret_cast<sockaddr*>(&m_address);
        EXPECT_EQ(bind(listening, address, sizeof m_address.sun_family), 0);
        EXPECT_EQ(listen(listening, 8), 0);
        m_kept = fcntl(kListenSocket, F_DUPFD_CLOEXEC, 3);
        EXPECT_EQ(dup2(listening, kListenSocket), kListenSocket);
        close(listening);
        getsockname(kListenSocket, address, &m_size);
        m_server = std::make_unique<FCGIServer>(SERVLET_XML);
        m_listeners = std::make_unique<ListenersOf>(*m_server->getController());
        front = std::make_unique<Connection>(m_address, m_size);
    }
    ~RequestEnd() override {
        front->close();
        if (run.valid())
            run.wait();
        m_server.reset();
        if (m_kept >= 0) {
            dup2(m_kept, kListenSocket);
            close(m_kept);
        } else {
            close(kListenSocket);
        }
    }

    // Starts a thread that serves the requests on the socket.
    void serve() {
        run = std::async(std::launch::async, [this] {
            server_clock::isSeenByThisThread = true;
            m_server->run();
        });
    }
    bool runEnds() { return run.wait_for(kSoon) == std::future_status::ready; }

    std::unique_ptr<Connection> front;
    std::future<void> run;

private:
    sockaddr_un m_address{AF_UNIX, {}};
    socklen_t m_size = sizeof m_address;
    int m_kept = -1;
    std::unique_ptr<FCGIServer> m_server;
    std::unique_ptr<ListenersOf> m_listeners;
};

const std::string kResponse =
    "Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>";

class AnnouncedBody : public RequestEnd, public testing::WithParamInterface<Variables> {};

TEST_P(AnnouncedBody, IsLeftUnreadUntilTheFrontServerCloses) {
    ASSERT_TRUE(front->send(begin(with(GetParam()))));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isHalfClosed());
    const std::string body = record(STDIN, "hello");
    EXPECT_TRUE(front->send(body.substr(0, 1)));
    EXPECT_TRUE(front->isHalfClosed());
    EXPECT_TRUE(front->send(body.substr(1) + record(STDIN, "")));
    EXPECT_TRUE(front->isHalfClosed());
    front->close();
    EXPECT_TRUE(runEnds());
}

INSTANTIATE_TEST_SUITE_P(
    ByItsVariables, AnnouncedBody,
    testing::Values(Variables{{"CONTENT_LENGTH", "5"}}, Variables{{"CONTENT_LENGTH", "00"}},
                    Variables{{"HTTP_TRANSFER_ENCODING", "chunked"}},
                    Variables{{"CONTENT_LENGTH", "0"}, {"HTTP_TRANSFER_ENCODING", "chunked"}}));

class NoBody : public RequestEnd, public testing::WithParamInterface<Variables> {};

TEST_P(NoBody, EndsWithItsEmptyRecord) {
    ASSERT_TRUE(front->send(begin(with(GetParam()))));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isOpen());
    EXPECT_TRUE(front->send(record(STDIN, "")));
    EXPECT_TRUE(front->isClosed());
    EXPECT_TRUE(runEnds());
}

TEST_P(NoBody, IsLeftUnreadIfOneArrivesNevertheless) {
    ASSERT_TRUE(front->send(begin(with(GetParam())) + record(STDIN, "hello")));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isHalfClosed());
    front->close();
    EXPECT_TRUE(runEnds());
}

INSTANTIATE_TEST_SUITE_P(ByItsVariables, NoBody,
                         testing::Values(Variables{}, Variables{{"CONTENT_LENGTH", ""}},
                                         Variables{{"CONTENT_LENGTH", "0"}}));

TEST_F(RequestEnd, WaitsTwoSecondsForTheFrontServerToClose) {
    ASSERT_TRUE(front->send(begin(with({{"CONTENT_LENGTH", "5"}}))));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    ASSERT_TRUE(serverLingers());
    server_clock::advance(1999ms);
    EXPECT_TRUE(serverLingers());
    server_clock::advance(1ms);
    EXPECT_TRUE(runEnds());
    EXPECT_TRUE(front->isClosed());
}

TEST_F(RequestEnd, WaitsNoLongerForAFrontServerThatKeepsSending) {
    ASSERT_TRUE(front->send(begin(with({{"CONTENT_LENGTH", "5"}}))));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    ASSERT_TRUE(serverLingers());
    for (auto elapsed = 0ms; elapsed < 1999ms; elapsed += 1ms) {
        ASSERT_TRUE(front->send(record(STDIN, "hello")));
        server_clock::advance(1ms);
    }
    EXPECT_TRUE(serverLingers());
    server_clock::advance(2ms);
    const auto limit = SteadyClock::now() + kSoon;
    while (front->send(record(STDIN, "hello")))
        ASSERT_LT(SteadyClock::now(), limit);
    EXPECT_TRUE(runEnds());
}

TEST_F(RequestEnd, LeavesAConnectionOpenThatMustBeKept) {
    const Variables request = with({{"CONTENT_LENGTH", "5"}});
    ASSERT_TRUE(front->send(begin(request, true)));
    serve();
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isOpen());
    ASSERT_TRUE(front->send(begin(request, true)));
    EXPECT_EQ(front->response(), kResponse);
}

} // namespace
