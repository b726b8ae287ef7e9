// The end of a request on a real connection, through libfcgi: who closes the connection, when, and
// that no request loop waits for it. tests/wire/test_unread_bodies.py tests the same from the front
// servers' side.
#include "fcgi_server.h"

#include "support/controller_members.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kSoon = 10s; // a failing test waits that long, others do not

// The clock that the server's own thread sees: it stands still until a test advances it, so that no
// test waits for the server's own time-out.
namespace server_clock {

thread_local bool isSeenByThisThread = false;
std::atomic<bool> isReal{false};
std::atomic<milliseconds> now{0ms};
std::atomic<unsigned> looks{0}; // of the server, for something to read

void reset() {
    isReal = false;
    now = 0ms;
    looks = 0;
}
void advance(milliseconds time) {
    now = now.load() + time;
}

} // namespace server_clock

// Waits until the server has compared the clock with its deadlines since the call, and waits again.
bool serverLooksTwice() {
    const unsigned before = server_clock::looks;
    const auto limit = SteadyClock::now() + kSoon;
    while (server_clock::looks < before + 2 && SteadyClock::now() < limit)
        std::this_thread::sleep_for(1ms);
    return server_clock::looks >= before + 2;
}

std::atomic<bool> serverIsHeld{false}; // its own thread, where it waits for news
std::atomic<bool> serverWaits{false};
std::atomic<bool> threadsFail{false}; // to be created
std::atomic<int> threadsCreated{0};

} // namespace

// The linker puts these in the place of poll(2), std::chrono::steady_clock::now() and
// pthread_create(3).
extern "C" {
int __real_poll(pollfd* polled, nfds_t count, int timeout);
int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    if (!server_clock::isSeenByThisThread)
        return __real_poll(polled, count, timeout);
    ++server_clock::looks;
    while (serverIsHeld) {
        serverWaits = true;
        std::this_thread::sleep_for(1ms);
    }
    serverWaits = false;
    // Too early, as after a signal: the server must compare its clock with its deadlines itself.
    const bool isInTime = timeout < 0 || server_clock::isReal;
    return __real_poll(polled, count, isInTime ? timeout : 1);
}
// What poll(2) becomes by _FORTIFY_SOURCE.
int __wrap___poll_chk(pollfd* polled, nfds_t count, int timeout, std::size_t) {
    return __wrap_poll(polled, count, timeout);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    static void* (*wanted)(void*);
    if (threadsFail)
        return EAGAIN;
    ++threadsCreated;
    wanted = start;
    const auto startWithClock = [](void* passed) {
        server_clock::isSeenByThisThread = true;
        return wanted(passed);
    };
    return __real_pthread_create(thread, attributes, startWithClock, argument);
}
}

SteadyClock::time_point realNow() __asm__("__real__ZNSt6chrono3_V212steady_clock3nowEv");
SteadyClock::time_point wrappedNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
SteadyClock::time_point wrappedNow() {
    return server_clock::isSeenByThisThread && !server_clock::isReal
               ? SteadyClock::time_point(server_clock::now.load())
               : realNow();
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
        return becomes(POLLRDHUP, kSoon) && serverLooksTwice() && !isClosedNow();
    }
    bool isClosedNow() const { return becomes(POLLHUP, 0ms); }
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

std::size_t filesIn(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}
std::size_t openDescriptors() {
    return filesIn("/proc/self/fd");
}
std::size_t threads() {
    return filesIn("/proc/self/task");
}

bool becomesTrue(const std::function<bool()>& condition) {
    const auto limit = SteadyClock::now() + kSoon;
    while (!condition()) {
        if (SteadyClock::now() > limit)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// The server on a non-blocking socket: accepting fails once no client is connecting, so that run()
// returns after the last request.
class RequestEnd : public testing::Test {
protected:
    RequestEnd() {
        server_clock::reset();
        threadsCreated = 0;
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
        front = connect();
    }
    ~RequestEnd() override {
        front.reset();
        server_clock::advance(kLongerThanAnyDeadline);
        m_server.reset();
        if (m_kept >= 0) {
            dup2(m_kept, kListenSocket);
            close(m_kept);
        } else {
            close(kListenSocket);
        }
    }

    std::unique_ptr<Connection> connect() const {
        return std::make_unique<Connection>(m_address, m_size);
    }
    // Returns whether a thread of its own serves the requests on the socket without being held up,
    // whatever their front servers do.
    bool serves() {
        auto run = std::async(std::launch::async, [this] { m_server->run(); });
        if (run.wait_for(kSoon) == std::future_status::ready)
            return true;
        front->close();
        return false;
    }
    // Sends a request, and serves it.
    void serve(const std::string& request) {
        ASSERT_TRUE(front->send(request));
        ASSERT_TRUE(serves());
    }
    void destroyServer() { m_server.reset(); }

    std::unique_ptr<Connection> front;

private:
    static constexpr auto kLongerThanAnyDeadline = 1h;

    sockaddr_un m_address{AF_UNIX, {}};
    socklen_t m_size = sizeof m_address;
    int m_kept = -1;
    std::unique_ptr<FCGIServer> m_server;
    std::unique_ptr<ListenersOf> m_listeners;
};

const std::string kResponse =
    "Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>";

// What has arrived when the request is served, and what the front server sends after that.
struct Arrival {
    const char* name;
    Variables variables;
    std::string before;
    std::string after;
};

class RequestThatIsNotWhole : public RequestEnd, public testing::WithParamInterface<Arrival> {};

TEST_P(RequestThatIsNotWhole, IsAnsweredOnAConnectionThatStaysOpenAndHoldsNoLoop) {
    const std::size_t descriptors = openDescriptors();
    serve(begin(with(GetParam().variables)) + GetParam().before);
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isHalfClosed());
    for (const char byte : GetParam().after) {
        EXPECT_TRUE(front->send(std::string(1, byte)));
        EXPECT_TRUE(serverLooksTwice());
    }
    EXPECT_TRUE(front->isHalfClosed());
    front->close();
    // The wake-up of the thread that lingers has taken the descriptor's place.
    EXPECT_TRUE(becomesTrue([&] { return openDescriptors() == descriptors; }));
}

const std::string kEmptyBody = record(STDIN, "");
const std::string kBody = record(STDIN, "hello");

INSTANTIATE_TEST_SUITE_P(
    With, RequestThatIsNotWhole,
    testing::Values(
        Arrival{"NoEndOfAnEmptyBody", {}, "", ""},
        Arrival{"TheLateEndOfAnEmptyBody", {}, "", kEmptyBody},
        Arrival{"TheLateEndOfABodyOfLengthZero", {{"CONTENT_LENGTH", "0"}}, "", kEmptyBody},
        Arrival{"ABodyThatWasNotAnnounced", {}, kBody, kBody + kEmptyBody},
        Arrival{"HalfARecordBehindIt", {}, kEmptyBody + kBody.substr(0, 4), kBody.substr(4)},
        Arrival{"ALateBody", {{"CONTENT_LENGTH", "5"}}, "", kBody + kEmptyBody},
        Arrival{"HalfABody", {{"CONTENT_LENGTH", "5"}}, kBody.substr(0, 9), ""},
        Arrival{"Chunks", {{"HTTP_TRANSFER_ENCODING", "chunked"}}, "", kBody + kEmptyBody}),
    [](const auto& example) { return std::string(example.param.name); });

TEST_F(RequestEnd, LeavesItToTheFrontServerToCloseAFormThatHasBeenRead) {
    serve(begin(with(
              {{"CONTENT_LENGTH", "3"}, {"CONTENT_TYPE", "application/x-www-form-urlencoded"}})) +
          record(STDIN, "x=y") + kEmptyBody);
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isHalfClosed());
}

TEST_F(RequestEnd, ClosesTheConnectionAfterTwoSeconds) {
    serve(begin(with({{"CONTENT_LENGTH", "5"}})));
    EXPECT_EQ(front->response(), kResponse);
    ASSERT_TRUE(front->isHalfClosed());
    server_clock::advance(1999ms);
    EXPECT_TRUE(front->isHalfClosed());
    server_clock::advance(1ms);
    EXPECT_TRUE(front->isClosed());
}

TEST_F(RequestEnd, GivesNoMoreTimeToAFrontServerThatKeepsSending) {
    serve(begin(with({{"CONTENT_LENGTH", "5"}})));
    EXPECT_EQ(front->response(), kResponse);
    ASSERT_TRUE(front->isHalfClosed());
    for (auto elapsed = 0ms; elapsed < 1999ms; elapsed += 1ms) {
        ASSERT_TRUE(front->send(kBody));
        server_clock::advance(1ms);
    }
    EXPECT_TRUE(front->isHalfClosed());
    server_clock::advance(1ms);
    EXPECT_TRUE(becomesTrue([this] { return !front->send(kBody); }));
}

TEST_F(RequestEnd, LeavesAConnectionOpenThatMustBeKept) {
    const Variables variables = with({{"CONTENT_LENGTH", "5"}});
    ASSERT_TRUE(front->send(begin(variables, true)));
    std::thread answered([this, &variables] {
        EXPECT_EQ(front->response(), kResponse);
        EXPECT_TRUE(front->isOpen());
        EXPECT_TRUE(front->send(begin(variables, true)));
        EXPECT_EQ(front->response(), kResponse);
        front->close();
    });
    EXPECT_TRUE(serves());
    answered.join();
    EXPECT_EQ(threadsCreated, 0);
}

TEST_F(RequestEnd, KeepsTheThirtyTwoNewestConnectionsOfSilentFrontServers) {
    const std::string request = begin(with({{"CONTENT_LENGTH", "5"}}));
    std::vector<std::unique_ptr<Connection>> fronts;
    for (int i = 0; i < 101; ++i) {
        serve(request);
        EXPECT_EQ(front->response(), kResponse);
        fronts.push_back(std::exchange(front, connect()));
    }
    for (int i = 0; i < 69; ++i)
        EXPECT_TRUE(fronts[i]->isClosed()) << i;
    for (int i = 69; i < 101; ++i)
        EXPECT_TRUE(fronts[i]->isHalfClosed()) << i;
    EXPECT_EQ(threadsCreated, 1);
}

// When more requests end than the server's own thread takes in time.
TEST_F(RequestEnd, ClosesConnectionsThatFrontServersHaveClosedBeforeTheOldestOther) {
    const auto finish = [this](bool isClosed) {
        serve(begin(with({})));
        EXPECT_EQ(front->response(), kResponse);
        if (isClosed) {
            EXPECT_TRUE(front->send(kEmptyBody));
            front->close();
        }
        return std::exchange(front, connect());
    };
    finish(true);
    serverIsHeld = true;
    finish(true); // wakes it, so that it is held
    EXPECT_TRUE(becomesTrue([] { return serverWaits.load(); }));
    const std::size_t before = openDescriptors();
    std::vector<std::unique_ptr<Connection>> open;
    open.push_back(finish(false));
    for (int i = 0; i < 100; ++i)
        finish(true);
    EXPECT_FALSE(open.front()->isClosedNow());
    EXPECT_LE(openDescriptors(), before + 2 + 31);
    for (int i = 0; i < 41; ++i)
        open.push_back(finish(false));
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(open[i]->isClosedNow()) << i;
    for (int i = 10; i < 42; ++i)
        EXPECT_FALSE(open[i]->isClosedNow()) << i;
    serverIsHeld = false;
    for (int i = 10; i < 42; ++i)
        EXPECT_TRUE(open[i]->isHalfClosed()) << i;
}

// When the server's own thread has not yet noticed which connections front servers have closed.
TEST_F(RequestEnd, ClosesTheOldestConnectionOnlyWhenAllOthersAreOpen) {
    const auto finish = [this] {
        serve(begin(with({})));
        EXPECT_EQ(front->response(), kResponse);
        return std::exchange(front, connect());
    };
    const auto oldest = finish();
    std::vector<std::unique_ptr<Connection>> others;
    for (int i = 0; i < 30; ++i)
        others.push_back(finish());
    EXPECT_TRUE(others.back()->isHalfClosed());
    serverIsHeld = true;
    const auto last = finish(); // wakes it, so that it is held
    EXPECT_TRUE(becomesTrue([] { return serverWaits.load(); }));
    for (const auto& other : others)
        EXPECT_TRUE(other->send(kEmptyBody));
    others.clear();
    const auto one = finish();
    const auto another = finish();
    serverIsHeld = false;
    EXPECT_TRUE(another->isHalfClosed());
    EXPECT_TRUE(oldest->isHalfClosed());
}

TEST_F(RequestEnd, ClosesAConnectionThatIsReset) {
    const std::size_t descriptors = openDescriptors();
    serve(begin(with({{"CONTENT_LENGTH", "5"}})));
    front->close(); // the response is unread, which resets the connection
    EXPECT_TRUE(becomesTrue([&] { return openDescriptors() == descriptors; }));
}

TEST_F(RequestEnd, ClosesAConnectionAtOnceWhenNoThreadCanBeCreatedForIt) {
    threadsFail = true;
    serve(begin(with({})) + kEmptyBody);
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isClosed());
    threadsFail = false;
    front = connect();
    serve(begin(with({})) + kEmptyBody);
    EXPECT_EQ(front->response(), kResponse);
    EXPECT_TRUE(front->isHalfClosed());
}

TEST_F(RequestEnd, HasNoThreadOfItsOwnBeforeTheFirstRequestNorAfterTheServer) {
    const std::size_t before = threads();
    const std::size_t descriptors = openDescriptors();
    EXPECT_EQ(threadsCreated, 0);
    serve(begin(with({})));
    EXPECT_EQ(threadsCreated, 1);
    front->close();
    destroyServer();
    EXPECT_TRUE(becomesTrue([&] { return threads() == before; }));
    EXPECT_EQ(openDescriptors(), descriptors - 1);
}

// Looks cost a device power.
TEST_F(RequestEnd, IsNotLookedAtUntilThereAreNews) {
    server_clock::isReal = true;
    const auto sleeps = [] {
        const unsigned before = server_clock::looks;
        std::this_thread::sleep_for(30ms); // three rounds
        return server_clock::looks == before;
    };
    std::vector<std::unique_ptr<Connection>> silent;
    for (int i = 0; i < 3; ++i) {
        serve(begin(with({})));
        EXPECT_EQ(front->response(), kResponse);
        silent.push_back(std::exchange(front, connect()));
        EXPECT_TRUE(becomesTrue(sleeps)) << i;
    }
    for (; !silent.empty(); silent.pop_back()) {
        const std::size_t descriptors = openDescriptors();
        const auto begin = SteadyClock::now();
        silent.back()->close();
        EXPECT_TRUE(becomesTrue([&] { return openDescriptors() == descriptors - 2; }));
        EXPECT_LT(SteadyClock::now() - begin, 500ms);
        EXPECT_TRUE(becomesTrue(sleeps)) << silent.size();
    }
}

TEST_F(RequestEnd, IsWaitedForWhenTheServerIsDestroyed) {
    serve(begin(with({{"CONTENT_LENGTH", "5"}})));
    EXPECT_EQ(front->response(), kResponse);
    auto destruction = std::async(std::launch::async, [this] { destroyServer(); });
    EXPECT_EQ(destruction.wait_for(kAWhile), std::future_status::timeout);
    EXPECT_TRUE(front->send(kBody));
    EXPECT_TRUE(front->isHalfClosed());
    server_clock::advance(2000ms);
    EXPECT_EQ(destruction.wait_for(kSoon), std::future_status::ready);
    EXPECT_TRUE(front->isClosed());
}

// Returns the number of threads that block two signals of which the server knows nothing.
int threadsThatBlockSignals() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        unsigned long long mask = 0;
        for (std::string word; mask == 0 && status >> word;)
            if (word == "SigBlk:")
                status >> std::hex >> mask;
        count += static_cast<int>(mask >> (SIGTERM - 1) & mask >> (SIGURG - 1) & 1);
    }
    return count;
}

TEST_F(RequestEnd, LeavesAllSignalsToOtherThreads) {
    const int before = threadsThatBlockSignals(); // a sanitizer has such a thread too
    serve(begin(with({})));
    // An emulator blocks them for a moment in other threads, too.
    EXPECT_TRUE(becomesTrue([&] { return threadsThatBlockSignals() == before + 1; }));
}

TEST_F(RequestEnd, LosesNoResponseOfSeveralLoops) {
    constexpr int kFronts = 4;
    constexpr int kRequests = 200;
    std::atomic<int> answered{0};
    std::atomic<int> served{0};
    const auto request = [&] {
        for (int i = 0; i < kRequests; ++i) {
            const auto connection = connect();
            EXPECT_TRUE(connection->send(begin(with({}))));
            answered += connection->response() == kResponse;
            EXPECT_TRUE(connection->send(kEmptyBody));
            ++served;
        }
    };
    front.reset();
    std::vector<std::thread> fronts;
    for (int i = 0; i < kFronts; ++i)
        fronts.emplace_back(request);
    while (served < kFronts * kRequests) {
        auto other = std::async(std::launch::async, [this] { return serves(); });
        EXPECT_TRUE(serves());
        EXPECT_TRUE(other.get());
    }
    for (std::thread& each : fronts)
        each.join();
    EXPECT_EQ(answered, kFronts * kRequests);
}

} // namespace
