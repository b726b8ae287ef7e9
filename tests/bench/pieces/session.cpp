// Operations on session tables of several sizes. Each table is filled once, for all measurements.
#include "pieces.h"

#include "http_request.h"
#include "http_session.h"
#include "session_factory.h"

#include <kit/testing/memory_stream.h>

#include <map>
#include <memory>
#include <vector>

namespace {

using namespace pieces;

constexpr int kNoLimit = 1000 * 1000 * 1000; // seconds
constexpr long kBatch = 64;                  // operations between two readings of the clock

// A table of idle sessions that do not expire, and requests of some of them, spread over the table.
class Population {
public:
    explicit Population(long count) {
        std::vector<HttpSessionImpl*> sessions;
        for (long i = 0; i < count; ++i)
            sessions.push_back(makeIdle());
        for (long i = 0; i < kBatch; ++i)
            m_requests.push_back(std::make_unique<Request>(*sessions[i * count / kBatch]));
    }
    ~Population() { m_factory.destory(); }
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

    void create(benchmark::State& state) {
        std::vector<HttpSessionImpl*> made(kBatch);
        AllocationCounter counter(state);
        while (state.KeepRunningBatch(kBatch)) {
            for (HttpSessionImpl*& session : made)
                session = m_factory.createSession(m_address);
            counter.pause();
            for (HttpSessionImpl* session : made)
                remove(session);
            counter.resume();
        }
    }

    void find(benchmark::State& state) {
        const AllocationCounter counter(state);
        while (state.KeepRunningBatch(kBatch))
            for (const auto& request : m_requests)
                if (m_factory.getSession(&request->impl) == nullptr)
                    state.SkipWithError("a session was not found");
    }

    // Creates sessions while the table is as full as a limit allows, so that each ends another.
    void createAtLimit(benchmark::State& state) {
        SessionFactory::setMaxSessions(m_factory.sessionNum());
        const AllocationCounter counter(state);
        for (auto each : state) {
            static_cast<void>(each);
            m_factory.createSession(m_address)->setMaxInactiveInterval(kNoLimit);
            m_factory.onRequestFinished(&m_requests.front()->impl);
        }
        SessionFactory::setMaxSessions(0);
    }

    void sweep() { m_factory.checkSession(); }

private:
    struct Request {
        explicit Request(HttpSession& session)
            : fastCgi({"REQUEST_METHOD=GET", "REMOTE_ADDR=192.0.2.7",
                       "HTTP_COOKIE=JSESSIONID=" + session.getId()}),
              impl(fastCgi.get(), nullptr, nullptr) {}

        kit::testing::MemoryRequest fastCgi;
        HttpRequestImpl impl;
    };

    HttpSessionImpl* makeIdle() {
        HttpSessionImpl* session = m_factory.createSession(m_address);
        session->m_bInRequest = false;
        session->setMaxInactiveInterval(kNoLimit);
        return session;
    }

    void remove(HttpSessionImpl* session) {
        std::string id = session->getId();
        m_factory.removeSession(id);
        delete session;
    }

    SessionFactory m_factory;
    std::string m_address = "192.0.2.7";
    std::vector<std::unique_ptr<Request>> m_requests;
};

Population& populationOf(long count) {
    static std::map<long, Population> populations;
    return populations.try_emplace(count, count).first->second;
}

// These lose the sessions that the requests of populationOf() look up.
Population& populationAtLimit(long count) {
    static std::map<long, Population> populations;
    return populations.try_emplace(count, count).first->second;
}

} // namespace

void pieces::addSession() {
    for (const long count : {10, 100, 1000, 10000, 100000}) {
        benchmark::RegisterBenchmark(
            nameOf("session/create", count, "ours").c_str(),
            [count](benchmark::State& state) { populationOf(count).create(state); });
        benchmark::RegisterBenchmark(
            nameOf("session/look up", count, "ours").c_str(),
            [count](benchmark::State& state) { populationOf(count).find(state); });
        add("session/sweep", count, "ours", [count] { populationOf(count).sweep(); });
    }
    for (const long count : {10, 100, 1000, 10000})
        benchmark::RegisterBenchmark(
            nameOf("session/create at the limit", count, "ours").c_str(),
            [count](benchmark::State& state) { populationAtLimit(count).createAtLimit(state); });
}
