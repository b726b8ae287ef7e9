#include "fcgi_server.h"

#include "app_log.h"
#include "http_session.h"
#include "loop_activity.h"
#include "plugin/plugin_watch.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "support/controller_members.h"
#include "support/rendezvous.h"
#include <kit/testing/recorded_log.h>
#include <kit/testing/request.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kit::testing;

constexpr int kLibfcgiModule = 4;

// Stands for libfcgi and the front server behind it. Tests say in advance what each accept returns.
class FrontServer {
public:
    // Make the next call of accept() return a request, or this result.
    MemoryRequest& willSend(const std::string& uri) {
        m_requests.emplace_back(new MemoryRequest(get(uri).inMemory()));
        m_steps.push_back({m_requests.back().get(), acceptedResult});
        return *m_requests.back();
    }
    void willFail(int result, int times = 1) {
        m_steps.insert(m_steps.end(), times, {nullptr, result});
    }

    int accept(FCGX_Request* request) {
        const int inside = ++m_accepting;
        app_log(kLibfcgiModule, 6, "accept");
        if (inside > mostAccepting)
            mostAccepting = inside;
        if (slowAccept)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const Step step = next();
        noteConnection(*request);
        if (step.request != nullptr)
            *request = *step.request->get();
        --m_accepting;
        return step.result;
    }
    void finish(FCGX_Request* request) {
        app_log(kLibfcgiModule, 6, "finish");
        noteConnection(*request);
        if (failsToSend)
            request->ipcFd = -1;
        meet(meetBefore);
        {
            std::lock_guard<std::mutex> lock(m_lock);
            finished.push_back(request);
            current.push_back(currentRequest());
            mostBusy = std::max(mostBusy, loopActivity().busy);
        }
        meet(meetAfter);
    }

    int acceptedResult = 0;
    bool slowAccept = false;
    bool failsToSend = false;                     // and closes the connection, therefore
    std::vector<std::pair<int, int>> connections; // ipcFd and keepConnection, at each call; guarded
    std::atomic<int> mostAccepting{0};
    std::vector<FCGX_Request*> initialised; // guarded by m_lock, as is the next
    std::vector<FCGX_Request*> finished;
    std::vector<CurrentRequest> current; // as the server reported it when each was finished
    int mostBusy = 0;
    Rendezvous* meetBefore = nullptr; // where requests wait for each other
    Rendezvous* meetAfter = nullptr;

    void initialise(FCGX_Request* request, int socket, int flags) {
        app_log(kLibfcgiModule, 6, "init request %d %d", socket, flags);
        *request = FCGX_Request{};
        std::lock_guard<std::mutex> lock(m_lock);
        initialised.push_back(request);
    }

private:
    struct Step {
        MemoryRequest* request;
        int result;
    };

    void noteConnection(const FCGX_Request& request) {
        std::lock_guard<std::mutex> lock(m_lock);
        connections.emplace_back(request.ipcFd, request.keepConnection);
    }

    static void meet(Rendezvous* place) {
        if (place != nullptr) {
            EXPECT_TRUE(place->arrive());
        }
    }

    Step next() {
        std::lock_guard<std::mutex> lock(m_lock);
        if (m_steps.empty())
            return {nullptr, -1};
        const Step step = m_steps.front();
        m_steps.pop_front();
        return step;
    }

    std::mutex m_lock;
    std::deque<Step> m_steps;
    std::list<std::unique_ptr<MemoryRequest>> m_requests;
    std::atomic<int> m_accepting{0};
};

FrontServer* frontServer = nullptr;

const unsigned long kRequestsAtStart = loopActivity().requests;

} // namespace

// The linker puts these in the place of libfcgi's functions.
extern "C" {
int __wrap_FCGX_Init() {
    app_log(kLibfcgiModule, 6, "init");
    return 0;
}
int __wrap_FCGX_InitRequest(FCGX_Request* request, int socket, int flags) {
    frontServer->initialise(request, socket, flags);
    return 0;
}
int __wrap_FCGX_Accept_r(FCGX_Request* request) {
    return frontServer->accept(request);
}
void __wrap_FCGX_Finish_r(FCGX_Request* request) {
    frontServer->finish(request);
}
}

namespace {

using plugin_watch::events;
using plugin_watch::messages;
using recorded_log::appLog;
using recorded_log::webDebug;
using Names = std::vector<std::string>;
using Records = std::vector<LogRecord>;

const std::string kNotFoundPage =
    "Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>";

LogRecord acceptFailed(int result) {
    return appLog(4,
                  "FCGIServer::run() accept request failed. err= " + std::to_string(result) + "\n");
}

// Returns the calls of libfcgi, in order.
Names libfcgiCalls() {
    Names result;
    for (const LogRecord& record : recorded_log::records())
        if (record.call == "app_log" && record.module == kLibfcgiModule)
            result.push_back(record.text);
    return result;
}

class Server : public testing::Test {
protected:
    Server() {
        frontServer = &front;
        recorded_log::clear();
        server = std::make_unique<FCGIServer>(SERVLET_XML);
        m_start = recorded_log::records();
        m_listeners = std::make_unique<ListenersOf>(*server->getController());
        recorded_log::clear();
    }
    ~Server() override {
        server.reset();
        frontServer = nullptr;
    }

    const Records& start() const { return m_start; }
    // Executes run() on several threads until accepting fails on each.
    void runOnThreads(int count) {
        front.willFail(-1, count);
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back([this] { EXPECT_EQ(server->run(), -1); });
        for (std::thread& thread : threads)
            thread.join();
    }

    FrontServer front;
    std::unique_ptr<FCGIServer> server;

private:
    Records m_start;
    std::unique_ptr<ListenersOf> m_listeners;
};

TEST_F(Server, InitialisesLibfcgiThenReadsTheConfigurationThenCreatesTheListeners) {
    ASSERT_GE(start().size(), 4u);
    EXPECT_EQ(start().front(), (LogRecord{"app_log", kLibfcgiModule, 6, "init"}));
    EXPECT_EQ(start()[1].text, "PluginLoader::loadConfigFile Begin.configfile =" SERVLET_XML);
    const auto position = [this](const LogRecord& record) {
        return std::find(start().begin(), start().end(), record) - start().begin();
    };
    EXPECT_LT(position(webDebug("info", "PluginLoader::init End")),
              position(plugin_watch::event("A 1 created")));
    EXPECT_EQ(start().back(), plugin_watch::event("C 1 init"));
    EXPECT_EQ(std::count(start().begin(), start().end(),
                         (LogRecord{"app_log", kLibfcgiModule, 6, "init"})),
              1);
}

TEST_F(Server, ReadsTheFixedConfigurationUnlessItIsGivenAnother) {
    FCGIServer fixed;
    ASSERT_GE(recorded_log::records().size(), 2u);
    EXPECT_EQ(recorded_log::records()[0].text, "init");
    EXPECT_EQ(recorded_log::records()[1].text, "PluginLoader::loadConfigFile Begin.configfile ="
                                               "/phone/www/WEB-INFO/servlet/servlet.xml");
}

TEST_F(Server, InitialisesARequestOnTheSocketThatTheWebServerPassed) {
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(libfcgiCalls(), (Names{"init request 0 0", "accept"}));
}

TEST_F(Server, WritesNoErrorPageForARequestThatWasServed) {
    const MemoryRequest& page = front.willSend("/servlet?p=status&text=hello");
    const MemoryRequest& event = front.willSend("/servlet?key=1");
    const MemoryRequest& older = front.willSend("/cgi-bin/Velmoranix.acx?Id=2");
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(page.out().text(), "\r\n<page hello>");
    EXPECT_EQ(event.out().text(), "\r\n");
    EXPECT_EQ(older.out().text(), "Location: /servlet?Id=2 \r\n\r\n");
    EXPECT_EQ(libfcgiCalls(), (Names{"init request 0 0", "accept", "finish", "accept", "finish",
                                     "accept", "finish", "accept"}));
}

TEST_F(Server, ServesOneRequestBetweenAcceptingAndFinishing) {
    front.willSend("/servlet?p=status");
    server->run();
    Names order;
    for (const LogRecord& record : recorded_log::records())
        order.push_back(record.text);
    EXPECT_EQ(order,
              (Names{"init request 0 0", "accept", "A 1 onRequest", "B 1 onRequest",
                     "C 1 onRequest", "page 1 created", "page 1 init", "page 1 service", "finish",
                     "accept", "FCGIServer::run() accept request failed. err= -1\n"}));
}

TEST_F(Server, AnswersARequestWithoutPageWithTheBareErrorPage) {
    MemoryRequest& request = front.willSend("/servlet?q=1");
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(request.out().text(), kNotFoundPage);
    EXPECT_EQ(libfcgiCalls(), (Names{"init request 0 0", "accept", "finish", "accept"}));
}

TEST_F(Server, AnswersARefusedRequestWithTheBareErrorPage) {
    MemoryRequest& request = front.willSend("/servlet?p=status&acc=x");
    server->run();
    EXPECT_EQ(request.out().text(), kNotFoundPage);
}

TEST_F(Server, WritesTheErrorPageAfterHeadersThatWereAlreadySent) {
    MemoryRequest& request = front.willSend("/servlet?p=unknown");
    server->run();
    EXPECT_EQ(request.out().text(), "\r\n" + kNotFoundPage);
}

TEST_F(Server, CallsTheHookWithEachRequestThatItHasAccepted) {
    const MemoryRequest& page = front.willSend("/servlet?p=status&text=hello");
    const MemoryRequest& refused = front.willSend("/servlet?q=1");
    FCGIServer::setRequestHook([](FCGX_Request& request) {
        FCGX_FPrintF(request.out, "X-Number: %lu\r\n", currentRequest().number);
    });
    const unsigned long before = loopActivity().requests;
    EXPECT_EQ(server->run(), -1);
    FCGIServer::setRequestHook(nullptr);
    const auto header = [before](unsigned long count) {
        return "X-Number: " + std::to_string(before + count) + "\r\n";
    };
    EXPECT_EQ(page.out().text(), header(1) + "\r\n<page hello>");
    EXPECT_EQ(refused.out().text(), header(2) + kNotFoundPage);
    const MemoryRequest& later = front.willSend("/servlet?q=1");
    server->run();
    EXPECT_EQ(later.out().text(), kNotFoundPage);
}

TEST_F(Server, UsesOneRequestObjectForAllThatARunAccepts) {
    front.willSend("/servlet?p=status");
    front.willSend("/servlet?q=1");
    server->run();
    ASSERT_EQ(front.initialised.size(), 1u);
    EXPECT_EQ(front.finished,
              (std::vector<FCGX_Request*>{front.initialised[0], front.initialised[0]}));
}

TEST_F(Server, KeepsRunningUnlessAcceptingReturnsANegativeResult) {
    front.acceptedResult = 7;
    front.willSend("/servlet?p=status");
    front.willSend("/servlet?p=status");
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(front.finished.size(), 2u);
}

class ConnectedServer : public Server {
protected:
    ConnectedServer() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends), 0); }
    ~ConnectedServer() override { close(m_ends[1]); }

    int connection() const { return m_ends[0]; }
    void serve(int keepConnection) {
        FCGX_Request& request = *front.willSend("/servlet?p=status").get();
        request.ipcFd = connection();
        request.keepConnection = keepConnection;
        server->run();
    }
    // Returns ipcFd and keepConnection when the request is finished, then when the next is
    // accepted.
    std::vector<std::pair<int, int>> connections() const {
        return {front.connections.begin() + 1, front.connections.end()};
    }
    bool isHalfClosed() const {
        pollfd polled{m_ends[1], POLLRDHUP, 0};
        return poll(&polled, 1, 0) > 0;
    }

private:
    int m_ends[2] = {};
};

using Connections = std::vector<std::pair<int, int>>;

TEST_F(ConnectedServer, TakesTheConnectionOverFromLibfcgi) {
    serve(0);
    EXPECT_EQ(connections(), (Connections{{connection(), 1}, {-1, 0}}));
    EXPECT_TRUE(isHalfClosed());
}

TEST_F(ConnectedServer, LeavesTheConnectionToLibfcgiIfItIsToBeKept) {
    serve(1);
    EXPECT_EQ(connections(), (Connections{{connection(), 1}, {connection(), 1}}));
    EXPECT_EQ(close(connection()), 0) << "it is open";
}

TEST_F(Server, TakesNothingOverIfTheRequestHasNoConnection) {
    front.willSend("/servlet?p=status").get()->ipcFd = 0;
    server->run();
    EXPECT_EQ(front.connections, (Connections{{0, 0}, {0, 0}, {0, 0}}));
}

TEST_F(ConnectedServer, TakesNothingOverIfLibfcgiHasClosedTheConnection) {
    front.failsToSend = true;
    serve(0);
    EXPECT_EQ(connections(), (Connections{{connection(), 1}, {-1, 0}}));
    EXPECT_EQ(close(connection()), 0) << "it is open";
}

TEST_F(Server, LogsOnceAndReturnsWhenAcceptingFails) {
    for (const int result : {-1, -9, -88, -2147483647}) {
        SCOPED_TRACE(result);
        front.willFail(result);
        recorded_log::clear();
        EXPECT_EQ(server->run(), -1);
        EXPECT_EQ(messages(), Records{acceptFailed(result)});
        EXPECT_EQ(libfcgiCalls(), (Names{"init request 0 0", "accept"}));
    }
}

TEST_F(Server, CanRunAgainAfterAcceptingFailed) {
    front.willFail(-1);
    server->run();
    MemoryRequest& request = front.willSend("/servlet?p=status");
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(request.out().text(), "\r\n<page without text>");
}

TEST_F(Server, NumbersTheRequestsOfAThreadWhileItServesThem) {
    const unsigned long before = loopActivity().requests;
    front.willSend("/servlet?p=status");
    front.willSend("/servlet?q=1");
    server->run();
    ASSERT_EQ(front.current.size(), 2u);
    EXPECT_EQ(front.current[0].number, before + 1);
    EXPECT_EQ(front.current[1].number, before + 2);
    EXPECT_GE(front.current[0].thread, 1);
    EXPECT_EQ(front.current[1].thread, front.current[0].thread);
    EXPECT_EQ(loopActivity().requests, before + 2);
    EXPECT_EQ(front.mostBusy, 1);
    EXPECT_EQ(currentRequest().number, 0u);
    EXPECT_EQ(loopActivity().busy, 0);
}

TEST_F(Server, CountsRequestsFromTheStartOfTheProcess) {
    EXPECT_EQ(kRequestsAtStart, 0u);
}

TEST_F(Server, ReportsNoRequestOnOtherThreads) {
    std::thread([] {
        EXPECT_EQ(currentRequest().number, 0u);
        EXPECT_EQ(currentRequest().thread, 0);
    }).join();
}

TEST_F(Server, NumbersConcurrentRequestsAndTheirThreadsDifferently) {
    Rendezvous before(2);
    Rendezvous after(2);
    front.meetBefore = &before;
    front.meetAfter = &after;
    front.willSend("/servlet?p=status");
    front.willSend("/servlet?p=status");
    runOnThreads(2);
    ASSERT_EQ(front.current.size(), 2u);
    EXPECT_NE(front.current[0].number, front.current[1].number);
    EXPECT_NE(front.current[0].thread, front.current[1].thread);
    EXPECT_EQ(front.mostBusy, 2);
    EXPECT_EQ(loopActivity().busy, 0);
}

TEST_F(Server, WritesItsErrorPagesByteForByte) {
    const struct {
        int status;
        const char* page;
    } cases[] = {
        {404, "Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>"},
        {500, "Status: 500 \r\nContentType: text/html \r\n\r\n"
              "<h2>500 - Service not avaliable now !</h2>"},
        {403, "Status: 403 \r\nContentType: text/html \r\n\r\n"},
        {200, "Status: 200 \r\nContentType: text/html \r\n\r\n"},
        {503, "Status: 503 \r\nContentType: text/html \r\n\r\n"},
        {0, "Status: 0 \r\nContentType: text/html \r\n\r\n"},
        {-1, "Status: -1 \r\nContentType: text/html \r\n\r\n"},
    };
    for (const auto& example : cases) {
        MemoryRequest request({});
        server->onError(request.get(), example.status);
        EXPECT_EQ(request.out().text(), example.page);
        EXPECT_EQ(request.out().flushedText(), "");
    }
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Server, ExpiresNoSessionInOnTimer) {
    std::string address = "10.0.0.5";
    SessionFactory* sessions = server->getController()->getSessionFactory();
    HttpSessionImpl* session = sessions->createSession(address);
    session->m_bInRequest = false;
    session->setMaxInactiveInterval(0);
    EXPECT_EQ(server->onTimer(), 0);
    EXPECT_EQ(sessions->sessionNum(), 1);
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Server, HasItsControllerAfterItsVirtualTablePointer) {
    EXPECT_EQ(reinterpret_cast<void**>(server.get())[1], server->getController());
    EXPECT_EQ(sizeof(FCGIServer), 2 * sizeof(void*));
}

TEST_F(Server, DestroysServletsThenSessionsThenClosesTheLibrary) {
    front.willSend("/servlet?p=status");
    server->run();
    std::string address = "10.0.0.5";
    server->getController()->getSessionFactory()->createSession(address);
    recorded_log::clear();
    server.reset();
    EXPECT_EQ(recorded_log::records(),
              (Records{plugin_watch::event("page 1 destroy"), webDebug("setUser", "(null)"),
                       plugin_watch::event("unloaded")}));
}

// As hosts may do that embed the object in storage of their own.
TEST_F(Server, IsDestroyedOnceWhenItsDestructorIsCalledTwice) {
    alignas(FCGIServer) unsigned char storage[sizeof(FCGIServer)];
    auto* other = new (storage) FCGIServer(SERVLET_XML);
    const ListenersOf listeners(*other->getController());
    other->~FCGIServer();
    void* controller = nullptr;
    std::memcpy(&controller, storage + sizeof(void*), sizeof controller);
    EXPECT_EQ(controller, nullptr);
    recorded_log::clear();
    other->FCGIServer::~FCGIServer(); // not through the virtual table, which may be gone
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Server, AcceptsOneRequestAtATimeEvenWithSeveralServers) {
    FCGIServer other(SERVLET_XML);
    const ListenersOf listeners(*other.getController());
    recorded_log::clear();
    front.slowAccept = true;
    constexpr int kThreads = 4;
    for (int i = 0; i < 5 * kThreads; ++i)
        front.willSend("/servlet?q=1");
    front.willFail(-1, kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] { EXPECT_EQ((i % 2 == 0 ? *server : other).run(), -1); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(front.mostAccepting, 1);
    EXPECT_EQ(front.finished.size(), 5u * kThreads);
    std::vector<FCGX_Request*> requests = front.initialised;
    std::sort(requests.begin(), requests.end());
    EXPECT_EQ(std::unique(requests.begin(), requests.end()) - requests.begin(), kThreads);
    const Records all = messages();
    EXPECT_EQ(std::count(all.begin(), all.end(), acceptFailed(-1)), kThreads);
}

TEST_F(Server, ServesSeveralRequestsConcurrently) {
    constexpr int kThreads = 3;
    for (int i = 0; i < kThreads; ++i)
        front.willSend("/servlet?p=status");
    Rendezvous inService(kThreads);
    std::atomic<int> met{0};
    plugin_watch::OnEvent meet([&](const std::string& event) {
        if (event == "page 1 service")
            met += inService.arrive();
    });
    runOnThreads(kThreads);
    EXPECT_EQ(met, kThreads);
}

TEST_F(Server, KeepsOtherThreadsRunningWhenOneFailsToAccept) {
    // The page waits until the other thread has failed and ended.
    MemoryRequest& page = front.willSend("/servlet?p=status");
    front.willFail(-5);
    MemoryRequest& later = front.willSend("/servlet?p=notice");
    Rendezvous inService(2);
    Rendezvous otherEnded(2);
    plugin_watch::OnEvent meet([&](const std::string& event) {
        if (event == "page 1 service") {
            EXPECT_TRUE(inService.arrive());
            EXPECT_TRUE(otherEnded.arrive());
        }
    });
    std::thread first([&] { EXPECT_EQ(server->run(), -1); });
    EXPECT_TRUE(inService.arrive());
    EXPECT_EQ(server->run(), -1);
    EXPECT_EQ(messages(), Records{acceptFailed(-5)});
    EXPECT_TRUE(otherEnded.arrive());
    first.join();
    EXPECT_EQ(page.out().text(), "\r\n<page without text>");
    EXPECT_EQ(later.out().text(), "ContentType: text/html \r\n\r\nidle");
}

} // namespace
