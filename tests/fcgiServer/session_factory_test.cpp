#include "session_factory.h"

#include "background_call.h"
#include "counted_memory.h"
#include "http_request.h"
#include "http_session.h"
#include <kit/testing/recorded_log.h>
#include <kit/testing/request.h>
#include <kit/testing/test_clock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace kit::testing;

using SessionTable = QKHashMap<std::string, HttpSessionImpl*, INT_HASH<std::string>>;

const LogRecord kExpired =
    recorded_log::appLog(6, "such session have invalidate,will to create a new session\n");
const LogRecord kUserCleared = recorded_log::webDebug("setUser", "(null)");

MemoryRequest& anyRequest() {
    static MemoryRequest request = get("/").inMemory();
    return request;
}

// A request that has only a session id and a client address.
class FakeRequest : public HttpRequestImpl {
public:
    FakeRequest(const char* sessionId, const char* remoteAddress)
        : HttpRequestImpl(anyRequest().get(), nullptr, nullptr), m_sessionId(sessionId),
          m_remoteAddress(remoteAddress != nullptr ? remoteAddress : ""),
          m_hasAddress(remoteAddress != nullptr) {}

    char* getRemoteAddr() override { return m_hasAddress ? m_remoteAddress.data() : nullptr; }
    const char* getSessionId() override { return m_sessionId; }

private:
    const char* m_sessionId;
    std::string m_remoteAddress;
    bool m_hasAddress;
};

bool isLocked(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) == EBUSY)
        return true;
    pthread_mutex_unlock(&mutex);
    return false;
}

// A session that records its destruction.
class WatchedSession : public HttpSessionImpl {
public:
    struct End {
        const HttpSessionImpl* session;
        bool wasValid;
        bool locked;
    };

    explicit WatchedSession(std::vector<End>& ends, bool busy = false)
        : HttpSessionImpl("192.0.2.1"), m_ends(ends) {
        m_bInRequest = busy;
    }
    ~WatchedSession() override { m_ends.push_back({this, m_bValid, isLocked(session_mutex)}); }

private:
    std::vector<End>& m_ends;
};

class SessionFactories : public testing::Test {
protected:
    SessionFactories() {
        test_clock::setTicks(100000);
        recorded_log::clear();
    }
    ~SessionFactories() override {
        m_factory.destory();
        test_clock::setTicks(100000);
    }

    // Returns the factory's only member.
    static SessionTable* tableOf(const SessionFactory& factory) {
        SessionTable* table;
        std::memcpy(&table, reinterpret_cast<const char*>(&factory) + sizeof(void*), sizeof table);
        return table;
    }
    SessionTable* table() const { return tableOf(m_factory); }

    HttpSessionImpl* create() { return m_factory.createSession(m_address); }
    HttpSessionImpl* createIdle() {
        HttpSessionImpl* session = create();
        session->m_bInRequest = false;
        return session;
    }
    HttpSessionImpl* createExpired() {
        HttpSessionImpl* session = createIdle();
        session->setMaxInactiveInterval(0);
        return session;
    }
    WatchedSession* adopt(WatchedSession* session) {
        table()->put(session->getId(), session);
        return session;
    }
    static FakeRequest requestOf(HttpSessionImpl* session) {
        return FakeRequest(session->getId().c_str(), session->m_remoteAddr.c_str());
    }
    HttpSessionImpl* get(HttpSessionImpl* session) {
        FakeRequest request = requestOf(session);
        return m_factory.getSession(&request);
    }
    void begin(HttpSessionImpl* session) {
        FakeRequest request = requestOf(session);
        m_factory.onRequest(&request);
    }
    void finish(HttpSessionImpl* session) {
        FakeRequest request = requestOf(session);
        m_factory.onRequestFinished(&request);
    }

    std::vector<WatchedSession::End> m_ends;
    std::string m_address = "192.0.2.1";
    SessionFactory m_factory;
};
using SessionLookUps = SessionFactories;
using SessionRequests = SessionFactories;
using SessionSweeps = SessionFactories;

// Most sessions that are created here belong to requests that have ended.
class SessionLimits : public SessionFactories {
protected:
    ~SessionLimits() override { SessionFactory::setMaxSessions(0); }

    HttpSessionImpl* createAndFinish() {
        HttpSessionImpl* session = create();
        finish(session);
        return session;
    }
    // Creates a session that has been idle for a second when the next one is created.
    HttpSessionImpl* createEarlier() {
        HttpSessionImpl* session = createAndFinish();
        test_clock::advanceSeconds(1);
        return session;
    }
    std::set<HttpSessionImpl*> sessions() const {
        std::set<HttpSessionImpl*> found;
        for (auto* entry = table()->firstAssoc(); entry != nullptr;
             entry = table()->nextAssoc(entry))
            found.insert(entry->value);
        return found;
    }
};
using SessionTableMutex = SessionFactories;

class SweepsOfUnusedSessions : public SessionFactories {
protected:
    SweepsOfUnusedSessions() { SessionFactory::recordUses(true); }
    ~SweepsOfUnusedSessions() override { SessionFactory::recordUses(false); }

    // Runs the call as a request of another thread.
    template <typename Call>
    static void onAnotherThread(Call call) {
        std::thread(call).join();
    }
};

// Creation

TEST_F(SessionFactories, StartEmpty) {
    EXPECT_EQ(m_factory.init(), 0);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(table()->m_nHashTableSize, 100u);
    EXPECT_EQ(table()->m_nBlockSize, 10);
    EXPECT_FALSE(table()->m_bMultiValue);
    EXPECT_EQ(table()->m_pHashTable, nullptr);
    std::string id = "unknown";
    EXPECT_FALSE(m_factory.existSession(id));
}

TEST_F(SessionFactories, KeepTheirSessionsWhenTheyAreInitialised) {
    HttpSessionImpl* session = create();
    EXPECT_EQ(m_factory.init(), 0);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionFactories, CreateSessionsThatAreValidAndBusy) {
    HttpSessionImpl* session = create();
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(session->isValidate());
    EXPECT_TRUE(session->m_bInRequest);
    EXPECT_EQ(session->m_remoteAddr, "192.0.2.1");
    EXPECT_EQ(session->getCreateTime(), test_clock::seconds() + 300);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    std::string id = session->getId();
    EXPECT_TRUE(m_factory.existSession(id));
    ASSERT_NE(table()->getAssoc(id), nullptr);
    EXPECT_EQ(table()->getAssoc(id)->value, session);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(SessionFactories, CreateIdsFromTheCallersText) {
    char start[32];
    std::snprintf(start, sizeof start, "%x1300",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(m_address.data())));
    EXPECT_EQ(create()->getId().rfind(start, 0), 0u);
}

TEST_F(SessionFactories, CreateASessionAtEachCall) {
    HttpSessionImpl* one = create();
    HttpSessionImpl* other = create();
    EXPECT_NE(one, other);
    EXPECT_NE(one->getId(), other->getId());
    EXPECT_EQ(m_factory.sessionNum(), 2);
    EXPECT_EQ(get(one), one);
    EXPECT_EQ(get(other), other);
}

TEST_F(SessionFactories, AreUnchangedWhenMemoryRunsOut) {
    const long live = counted_memory::live();
    HttpSessionImpl* session = nullptr;
    int successes = 0;
    for (; session == nullptr; ++successes) {
        counted_memory::failAfter(successes);
        try {
            session = create(); // would wait for ever if the mutex had not been released
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(m_factory.sessionNum(), 0);
            EXPECT_EQ(m_factory.destory(), 0);
            EXPECT_EQ(counted_memory::live(), live) << successes;
        }
        counted_memory::cancelFailure();
    }
    EXPECT_GE(successes, 4); // a session, its place in the table
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionFactories, DoNotDeleteRemovedSessions) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    HttpSessionImpl* other = create();
    int value = 1;
    session->setAttribute("user", &value);
    std::string id = session->getId();
    m_factory.removeSession(id);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_FALSE(m_factory.existSession(id));
    EXPECT_EQ(get(session), nullptr);
    EXPECT_EQ(get(other), other);

    EXPECT_TRUE(m_ends.empty());
    EXPECT_TRUE(session->isValidate());
    EXPECT_EQ(session->getAttribute("user"), &value);
    EXPECT_TRUE(recorded_log::records().empty());
    delete session;
}

TEST_F(SessionFactories, FreeTheTableWithTheLastRemovedSession) {
    HttpSessionImpl* session = create();
    std::string id = session->getId();
    m_factory.removeSession(id);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(table()->m_pHashTable, nullptr);
    EXPECT_EQ(table()->m_pBlocks, nullptr);
    delete session;
}

TEST_F(SessionFactories, ChangeNothingWhenAnUnknownSessionIsRemoved) {
    std::string unknown = "unknown";
    m_factory.removeSession(unknown);
    HttpSessionImpl* session = create();
    m_factory.removeSession(unknown);
    unknown.clear();
    m_factory.removeSession(unknown);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionFactories, CountExpiredSessionsToo) {
    HttpSessionImpl* session = createExpired();
    std::string id = session->getId();
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_TRUE(m_factory.existSession(id));
}

// Look-up

TEST_F(SessionLookUps, FindTheSessionOfTheIdAndTheAddress) {
    HttpSessionImpl* session = create();
    FakeRequest request = requestOf(session);
    EXPECT_EQ(m_factory.findSession(&request), session);
    EXPECT_EQ(m_factory.getSession(&request), session);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(SessionLookUps, FindNothingForAnyOtherRequest) {
    HttpSessionImpl* session = createIdle();
    const std::string id = session->getId();
    const std::string longer = id + "0";
    const std::string shorter = id.substr(1);
    const struct {
        const char* id;
        const char* address;
    } rows[] = {
        {nullptr, "192.0.2.1"},
        {nullptr, nullptr},
        {id.c_str(), nullptr},
        {"", "192.0.2.1"},
        {"unknown", "192.0.2.1"},
        {longer.c_str(), "192.0.2.1"},
        {shorter.c_str(), "192.0.2.1"},
        {id.c_str(), "192.0.2.2"},
        {id.c_str(), "192.0.2.10"},
        {id.c_str(), "192.0.2."},
        {id.c_str(), " 192.0.2.1"},
        {id.c_str(), "::ffff:192.0.2.1"},
        {id.c_str(), ""},
    };
    test_clock::advanceSeconds(10);
    for (const auto& row : rows) {
        FakeRequest request(row.id, row.address);
        const std::string name = std::string(row.id != nullptr ? row.id : "(null)") + " from " +
                                 (row.address != nullptr ? row.address : "(null)");
        EXPECT_EQ(m_factory.findSession(&request), nullptr) << name;
        EXPECT_EQ(m_factory.getSession(&request), nullptr) << name;
        m_factory.onRequest(&request);
        EXPECT_FALSE(session->m_bInRequest) << name;
        EXPECT_EQ(session->getLastAccessedTime(), 1300) << name;
        session->m_bInRequest = true;
        m_factory.onRequestFinished(&request);
        EXPECT_TRUE(session->m_bInRequest) << name;
        session->m_bInRequest = false;
    }
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(SessionLookUps, FindNothingInAnEmptyFactory) {
    FakeRequest request("unknown", "192.0.2.1");
    EXPECT_EQ(m_factory.getSession(&request), nullptr);
    m_factory.onRequest(&request);
    m_factory.onRequestFinished(&request);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(table()->m_pHashTable, nullptr);
}

TEST_F(SessionLookUps, FindNothingWhereATableEntryHasNoSession) {
    table()->put("ghost", nullptr);
    FakeRequest request("ghost", "192.0.2.1");
    EXPECT_EQ(m_factory.getSession(&request), nullptr);
    EXPECT_TRUE(recorded_log::records().empty());
    EXPECT_EQ(m_factory.destory(), 0); // and nothing is deleted
    EXPECT_TRUE(recorded_log::records().empty());
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SessionLookUps, LookAnEmptyIdUpLikeAnyOther) {
    HttpSessionImpl* session = create();
    table()->put("", session);
    FakeRequest request("", "192.0.2.1");
    EXPECT_EQ(m_factory.getSession(&request), session);
    table()->removeAssoc(table()->getAssoc(""));
}

TEST_F(SessionLookUps, AcceptAnEmptyAddressThatTheSessionWasCreatedFor) {
    m_address.clear();
    HttpSessionImpl* session = create();
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionLookUps, LogAnExpiredSessionOncePerCallAndLeaveItToTheSweep) {
    HttpSessionImpl* session = createIdle();
    test_clock::advanceSeconds(179);
    EXPECT_EQ(get(session), session);
    EXPECT_TRUE(recorded_log::records().empty());

    test_clock::advanceSeconds(1);
    EXPECT_EQ(get(session), nullptr);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kExpired});
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_TRUE(session->m_bValid); // neither invalidated nor deleted
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SessionLookUps, LogAnInvalidatedSessionAsWell) {
    HttpSessionImpl* session = createIdle();
    session->invalidate();
    recorded_log::clear();
    EXPECT_EQ(get(session), nullptr);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kExpired});
    EXPECT_EQ(m_factory.sessionNum(), 1);
}

TEST_F(SessionLookUps, DoNotLogTheExpiredSessionOfAnotherAddress) {
    HttpSessionImpl* session = createExpired();
    FakeRequest request(session->getId().c_str(), "192.0.2.2");
    EXPECT_EQ(m_factory.getSession(&request), nullptr);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(SessionLookUps, NeitherRefreshTheSessionNorMakeItBusy) {
    HttpSessionImpl* session = createIdle();
    test_clock::advanceSeconds(100);
    EXPECT_EQ(get(session), session);
    EXPECT_EQ(session->getLastAccessedTime(), 1300);
    EXPECT_FALSE(session->m_bInRequest);
}

// Begin and end of requests

TEST_F(SessionRequests, MarkTheirSessionAsBusyAndRefreshIt) {
    HttpSessionImpl* session = createIdle();
    HttpSessionImpl* other = createIdle();
    test_clock::advanceSeconds(100);
    begin(session);
    EXPECT_TRUE(session->m_bInRequest);
    EXPECT_EQ(session->getLastAccessedTime(), 1400);
    EXPECT_EQ(session->getCreateTime(), 1300);
    EXPECT_FALSE(other->m_bInRequest);
    EXPECT_EQ(other->getLastAccessedTime(), 1300);
}

TEST_F(SessionRequests, NeedNoMemoryUnlessUsesAreRecorded) {
    const HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    FakeRequest request(session->m_id.c_str(), "192.0.2.1");
    counted_memory::failAfter(0);
    EXPECT_NO_THROW(m_factory.onRequest(&request));
    EXPECT_NO_THROW(EXPECT_EQ(m_factory.getSession(&request), session));
    EXPECT_NO_THROW(m_factory.onRequestFinished(&request));
    counted_memory::cancelFailure();
}

TEST_F(SessionRequests, ClearTheBusyFlagAtTheirEnd) {
    HttpSessionImpl* session = create();
    HttpSessionImpl* other = create();
    test_clock::advanceSeconds(100);
    finish(session);
    EXPECT_FALSE(session->m_bInRequest);
    EXPECT_EQ(session->getLastAccessedTime(), 1300); // idle since the request began
    EXPECT_TRUE(other->m_bInRequest);
    EXPECT_TRUE(session->m_bValid);
}

TEST_F(SessionRequests, DoNotReviveAnExpiredSession) {
    HttpSessionImpl* session = createIdle();
    test_clock::advanceSeconds(180);
    begin(session);
    EXPECT_FALSE(session->m_bInRequest);
    EXPECT_EQ(session->getLastAccessedTime(), 1300);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kExpired});
}

TEST_F(SessionRequests, KeepTheBusyFlagOfASessionThatExpiredMeanwhile) {
    HttpSessionImpl* session = create();
    test_clock::advanceSeconds(180);
    finish(session);
    EXPECT_TRUE(session->m_bInRequest);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kExpired});

    m_factory.onTimer(); // refreshes it, as it does with every busy session
    EXPECT_EQ(get(session), session);
    finish(session);
    EXPECT_FALSE(session->m_bInRequest);
}

// The sweep

TEST_F(SessionSweeps, FreeASessionThatARequestOfItsOwnHasEnded) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    HttpSessionImpl* other = createIdle();
    FakeRequest request = requestOf(session);
    m_factory.onRequest(&request);
    m_factory.endSession(&request);
    EXPECT_EQ(m_factory.getSession(&request), nullptr);
    ASSERT_TRUE(m_ends.empty()) << "the request goes on";
    m_factory.onRequestFinished(&request); // does not find it any more
    m_factory.onTimer();
    EXPECT_EQ(m_ends.size(), 1u);
    EXPECT_EQ(get(other), other);
}

TEST_F(SessionSweeps, EndNoSessionOfARequestWithoutOne) {
    HttpSessionImpl* session = createIdle();
    for (const char* address : {"192.0.2.2", static_cast<const char*>(nullptr)}) {
        FakeRequest request(session->getId().c_str(), address);
        m_factory.endSession(&request);
    }
    EXPECT_EQ(get(session), session);
}

// The sweep of a host with several threads

TEST_F(SweepsOfUnusedSessions, KeepASessionUnderTheLongerOfTwoRequests) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    onAnotherThread([&] { begin(session); }); // the longer one, which does not end
    begin(session);
    finish(session); // clears the busy mark of both
    test_clock::advanceSeconds(180);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
    EXPECT_EQ(get(session), session); // its idle time has restarted
}

TEST_F(SweepsOfUnusedSessions, KeepAnInvalidatedSessionUnderARequest) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    onAnotherThread([&] { begin(session); });
    begin(session);
    session->invalidate();
    finish(session);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
}

TEST_F(SweepsOfUnusedSessions, KeepTheSessionThatAPageHasLookedUp) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    EXPECT_EQ(get(session), session);
    session->setMaxInactiveInterval(0);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
}

TEST_F(SweepsOfUnusedSessions, KeepTheSessionThatAPageHasCreated) {
    HttpSessionImpl* session = create();
    session->m_bInRequest = false;
    test_clock::advanceSeconds(1000);
    m_factory.sweepUnused();
    EXPECT_EQ(get(session), session);
}

TEST_F(SweepsOfUnusedSessions, EndExpiredSessionsWhenTheirRequestsHaveEnded) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    const HttpSessionImpl* expected = session;
    begin(session);
    finish(session);
    test_clock::advanceSeconds(179);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
    test_clock::advanceSeconds(1);
    m_factory.sweepUnused();
    ASSERT_EQ(m_ends.size(), 1u);
    EXPECT_EQ(m_ends[0].session, expected);
    EXPECT_FALSE(m_ends[0].wasValid);
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SweepsOfUnusedSessions, EndASessionThatARefusedRequestLeftBusy) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    begin(session); // and it never finishes
    FakeRequest next("none", "192.0.2.1");
    m_factory.onRequest(&next);
    ASSERT_TRUE(session->m_bInRequest);
    test_clock::advanceSeconds(179);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
    test_clock::advanceSeconds(1);
    m_factory.sweepUnused();
    EXPECT_EQ(m_ends.size(), 1u);
}

TEST_F(SweepsOfUnusedSessions, KeepAnEndedSessionUntilItsRequestsHaveEnded) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends));
    FakeRequest request = requestOf(session);
    m_factory.onRequest(&request);
    m_factory.endSession(&request);
    m_factory.sweepUnused();
    ASSERT_TRUE(m_ends.empty());
    m_factory.onRequestFinished(&request);
    m_factory.sweepUnused();
    EXPECT_EQ(m_ends.size(), 1u);
}

TEST_F(SweepsOfUnusedSessions, EndASessionThatWasInvalidatedWhileItWasServed) {
    HttpSessionImpl* session = adopt(new WatchedSession(m_ends, true));
    begin(session);
    session->invalidate();
    finish(session); // does not find it any more
    m_factory.sweepUnused();
    EXPECT_EQ(m_ends.size(), 1u);
}

// The limit

TEST_F(SessionLimits, AreOffUnlessTheyAreSet) {
    for (int number = 0; number < 1000; ++number)
        createAndFinish();
    EXPECT_EQ(m_factory.sessionNum(), 1000);
    SessionFactory::setMaxSessions(1);
    SessionFactory::setMaxSessions(0);
    createAndFinish();
    EXPECT_EQ(m_factory.sessionNum(), 1001);
}

TEST_F(SessionLimits, EndTheSessionThatHasBeenIdleLongest) {
    SessionFactory::setMaxSessions(3);
    HttpSessionImpl* one = createEarlier();
    HttpSessionImpl* two = createEarlier();
    HttpSessionImpl* three = createEarlier();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{one, two, three}));
    begin(one);
    finish(one);
    HttpSessionImpl* four = createAndFinish();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{one, three, four}));
    EXPECT_EQ(get(one), one);
}

TEST_F(SessionLimits, EndAsManySessionsAsNeeded) {
    for (int number = 0; number < 10; ++number)
        createEarlier();
    SessionFactory::setMaxSessions(4);
    EXPECT_EQ(m_factory.sessionNum(), 10);
    createAndFinish();
    EXPECT_EQ(m_factory.sessionNum(), 4);
}

TEST_F(SessionLimits, EndASessionAsTheSweepDoes) {
    SessionFactory::setMaxSessions(1);
    WatchedSession* idle = adopt(new WatchedSession(m_ends));
    const HttpSessionImpl* expected = idle;
    int value = 1;
    idle->setAttribute("user", &value);
    test_clock::advanceSeconds(1);
    HttpSessionImpl* created = create();
    ASSERT_EQ(m_ends.size(), 1u);
    EXPECT_EQ(m_ends[0].session, expected);
    EXPECT_FALSE(m_ends[0].wasValid);
    EXPECT_FALSE(m_ends[0].locked);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kUserCleared}); // nothing else
    EXPECT_EQ(sessions(), std::set<HttpSessionImpl*>{created});
}

TEST_F(SessionLimits, EndInvalidatedSessionsFirst) {
    SessionFactory::setMaxSessions(2);
    HttpSessionImpl* older = createEarlier();
    createEarlier()->invalidate();
    HttpSessionImpl* created = createAndFinish();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{older, created}));
}

TEST_F(SessionLimits, EndABusySessionThatNoRequestUsesFirst) {
    SessionFactory::setMaxSessions(2);
    HttpSessionImpl* older = createEarlier();
    createEarlier()->m_bInRequest = true; // as a refused request leaves it
    test_clock::advanceSeconds(10);
    m_factory.onTimer();
    HttpSessionImpl* created = createAndFinish();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{older, created}));
}

TEST_F(SessionLimits, KeepTheSessionsThatARequestUses) {
    SessionFactory::setMaxSessions(1);
    HttpSessionImpl* begun = createEarlier();
    std::thread([&] { begin(begun); }).join(); // another request, which has not ended
    HttpSessionImpl* found = nullptr;
    std::thread([&] { found = create(); }).join();
    HttpSessionImpl* created = create();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{begun, found, created}));
}

TEST_F(SessionLimits, KeepTheSessionThatAPageHasLookedUp) {
    SessionFactory::setMaxSessions(1);
    HttpSessionImpl* session = createEarlier();
    EXPECT_EQ(get(session), session);
    HttpSessionImpl* created = create();
    EXPECT_EQ(sessions(), (std::set<HttpSessionImpl*>{session, created}));
}

TEST_F(SessionLimits, LetASessionGoWhenItsRequestHasEnded) {
    SessionFactory::setMaxSessions(1);
    HttpSessionImpl* session = createEarlier();
    begin(session);
    finish(session);
    HttpSessionImpl* created = create();
    EXPECT_EQ(sessions(), std::set<HttpSessionImpl*>{created});
}

TEST_F(SessionLimits, LetTheSessionOfARefusedRequestGoWithTheNextRequest) {
    SessionFactory::setMaxSessions(1);
    HttpSessionImpl* session = createEarlier();
    begin(session); // and it never finishes
    FakeRequest other("none", "192.0.2.1");
    m_factory.onRequest(&other);
    HttpSessionImpl* created = create();
    EXPECT_EQ(sessions(), std::set<HttpSessionImpl*>{created});
}

TEST_F(SessionLimits, NeverLetAnIdBeUsedTwice) {
    SessionFactory::setMaxSessions(1);
    std::set<std::string> ids;
    for (int number = 0; number < 100; ++number)
        EXPECT_TRUE(ids.insert(createAndFinish()->getId()).second) << number;
    EXPECT_EQ(m_factory.sessionNum(), 1);
}

TEST_F(SessionLimits, FreeEndedSessionsInTheNextSecond) {
    SessionFactory::setMaxSessions(1);
    createEarlier();
    createEarlier();
    const long live = counted_memory::live();
    for (int number = 0; number < 100; ++number)
        createAndFinish();
    EXPECT_GE(counted_memory::live(), live + 99); // the first one ends a session of another second
    test_clock::advanceSeconds(1);
    m_factory.onTimer();
    EXPECT_LE(counted_memory::live(), live + 10); // the list of ended sessions
    EXPECT_EQ(m_factory.sessionNum(), 1);
}

TEST_F(SessionSweeps, DoNothingInAnEmptyFactory) {
    m_factory.checkSession();
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(SessionSweeps, KeepIdleSessionsUntilTheyExpire) {
    HttpSessionImpl* session = createIdle();
    test_clock::advanceSeconds(179);
    m_factory.checkSession();
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(session->getLastAccessedTime(), 1300); // not refreshed
    test_clock::advanceSeconds(1);
    m_factory.checkSession();
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SessionSweeps, InvalidateAndDeleteExpiredSessions) {
    WatchedSession* expired = adopt(new WatchedSession(m_ends));
    expired->setMaxInactiveInterval(0);
    const HttpSessionImpl* expected = expired;
    HttpSessionImpl* valid = createIdle();
    m_factory.checkSession();
    ASSERT_EQ(m_ends.size(), 1u);
    EXPECT_EQ(m_ends[0].session, expected);
    EXPECT_FALSE(m_ends[0].wasValid);
    EXPECT_FALSE(m_ends[0].locked);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kUserCleared}); // nothing else
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(get(valid), valid);
}

TEST_F(SessionSweeps, DeleteInvalidatedSessionsHoweverFresh) {
    WatchedSession* session = adopt(new WatchedSession(m_ends));
    session->invalidate();
    m_factory.checkSession();
    EXPECT_EQ(m_ends.size(), 1u);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(recorded_log::records(), (std::vector<LogRecord>{kUserCleared, kUserCleared}));
}

TEST_F(SessionSweeps, RefreshBusySessionsHoweverLongTheRequestTakes) {
    HttpSessionImpl* session = create();
    for (int round = 0; round < 5; ++round) {
        test_clock::advanceSeconds(10000);
        m_factory.onTimer();
        EXPECT_EQ(session->getLastAccessedTime(), test_clock::seconds() + 300);
        EXPECT_TRUE(session->m_bInRequest);
    }
    EXPECT_EQ(get(session), session);
    finish(session);
    test_clock::advanceSeconds(179);
    m_factory.onTimer();
    EXPECT_EQ(get(session), session);
    test_clock::advanceSeconds(1);
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SessionSweeps, KeepAnInvalidSessionWhileItIsBusy) {
    WatchedSession* session = adopt(new WatchedSession(m_ends, true));
    session->invalidate();
    m_factory.onTimer();
    finish(session); // does not find it any more
    m_factory.onTimer();
    EXPECT_TRUE(m_ends.empty());
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(m_factory.destory(), 0);
    EXPECT_EQ(m_ends.size(), 1u);
}

TEST_F(SessionSweeps, FreeTheTableWithTheLastSession) {
    for (int number = 0; number < 25; ++number)
        createExpired();
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(table()->m_pHashTable, nullptr);
    EXPECT_EQ(table()->m_pBlocks, nullptr);
    EXPECT_EQ(table()->m_pFreeList, nullptr);
    HttpSessionImpl* session = create(); // and it goes on
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionSweeps, RemoveSeveralSessionsOfOneBucket) {
    std::map<std::uint32_t, std::set<HttpSessionImpl*>> buckets;
    for (int number = 0; number < 500; ++number) {
        HttpSessionImpl* session = createIdle();
        buckets[table()->getAssoc(session->getId())->nBucket].insert(session);
    }
    const auto fullest =
        std::max_element(buckets.begin(), buckets.end(), [](const auto& one, const auto& other) {
            return one.second.size() < other.second.size();
        });
    ASSERT_GE(fullest->second.size(), 5u);
    const auto expiredCount = static_cast<int>(fullest->second.size());
    for (HttpSessionImpl* session : fullest->second)
        session->setMaxInactiveInterval(0);
    buckets.erase(fullest);

    m_factory.checkSession();
    EXPECT_EQ(m_factory.sessionNum(), 500 - expiredCount);
    EXPECT_EQ(recorded_log::records(),
              std::vector<LogRecord>(static_cast<std::size_t>(expiredCount), kUserCleared));
    for (const auto& [bucket, sessions] : buckets)
        for (HttpSessionImpl* session : sessions)
            EXPECT_EQ(get(session), session) << "bucket " << bucket;
}

TEST_F(SessionSweeps, DistinguishBusyIdleAndExpiredSessions) {
    std::vector<HttpSessionImpl*> busy;
    std::vector<HttpSessionImpl*> idle;
    for (int number = 0; number < 300; ++number) {
        switch (number % 3) {
        case 0:
            busy.push_back(create());
            break;
        case 1:
            idle.push_back(createIdle());
            break;
        default:
            adopt(new WatchedSession(m_ends))->setMaxInactiveInterval(20);
        }
    }
    test_clock::advanceSeconds(20);
    m_factory.checkSession();
    EXPECT_EQ(m_factory.sessionNum(), 200);
    EXPECT_EQ(m_ends.size(), 100u);
    for (HttpSessionImpl* session : busy)
        EXPECT_EQ(session->getLastAccessedTime(), 1320);
    for (HttpSessionImpl* session : idle)
        EXPECT_EQ(session->getLastAccessedTime(), 1300);
}

// Destruction

TEST_F(SessionFactories, InvalidateAndDeleteEverySessionInDestory) {
    for (int number = 0; number < 30; ++number)
        adopt(new WatchedSession(m_ends, number % 2 == 0));
    std::vector<const HttpSessionImpl*> expected;
    for (auto* entry = table()->firstAssoc(); entry != nullptr; entry = table()->nextAssoc(entry))
        expected.push_back(entry->value);

    EXPECT_EQ(m_factory.destory(), 0);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(table()->m_pHashTable, nullptr);
    EXPECT_EQ(table()->m_pBlocks, nullptr);
    std::vector<const HttpSessionImpl*> ended;
    for (const WatchedSession::End& end : m_ends) {
        ended.push_back(end.session);
        EXPECT_FALSE(end.wasValid);
        EXPECT_FALSE(end.locked);
    }
    EXPECT_EQ(ended, expected);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>(30, kUserCleared));
}

TEST_F(SessionFactories, CanBeDestroyedEmptyAndTwice) {
    EXPECT_EQ(m_factory.destory(), 0);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    create();
    EXPECT_EQ(m_factory.destory(), 0);
    EXPECT_EQ(m_factory.destory(), 0);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    HttpSessionImpl* session = create();
    EXPECT_EQ(get(session), session);
}

TEST_F(SessionFactories, DoNotDeleteSessionsInTheirDestructor) {
    m_ends.reserve(1);
    const long live = counted_memory::live();
    auto* factory = new SessionFactory;
    auto* session = new WatchedSession(m_ends, true);
    tableOf(*factory)->put(session->getId(), session);
    delete factory;
    EXPECT_TRUE(m_ends.empty());
    EXPECT_TRUE(session->isValidate());
    EXPECT_TRUE(recorded_log::records().empty());
    delete session;
    EXPECT_EQ(counted_memory::live(), live); // the table went with the factory
}

TEST_F(SessionFactories, HaveOneMemberAfterTheirVirtualTablePointer) {
    EXPECT_EQ(sizeof(SessionFactory), 2 * sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor_v<SessionFactory>);
    EXPECT_FALSE(std::is_copy_constructible_v<SessionFactory>);
    create();
    EXPECT_EQ(table()->m_nCount, 1);
}

// Locks

// A sweep that holds the table mutex while it waits for session_mutex to invalidate a session. The
// factory must contain an expired one.
class HeldSweep {
public:
    explicit HeldSweep(SessionFactory& factory)
        : m_held(pthread_mutex_lock(&session_mutex) == 0),
          m_sweep([&factory] { factory.checkSession(); }) {
        EXPECT_TRUE(m_sweep.waits());
    }
    ~HeldSweep() { release(); }

    void release() {
        if (m_held)
            pthread_mutex_unlock(&session_mutex);
        m_held = false;
    }

private:
    bool m_held;
    BackgroundCall m_sweep;
};

// Calls `operation` while another factory is in the middle of a sweep, which holds the table mutex
// of all factories. Returns whether it waits.
bool waitsForTheTableMutex(const std::function<void()>& operation) {
    std::string address = "192.0.2.99";
    SessionFactory swept;
    HttpSessionImpl* session = swept.createSession(address);
    session->m_bInRequest = false;
    session->setMaxInactiveInterval(0);
    HeldSweep sweep(swept);
    BackgroundCall call(operation);
    const bool waits = call.waits();
    sweep.release();
    return waits;
}

TEST_F(SessionTableMutex, BlocksTheOperationsThatLockIt) {
    HttpSessionImpl* session = create();
    FakeRequest request = requestOf(session);
    FakeRequest unknown("none", "192.0.2.1");
    std::string id = session->getId();
    const struct {
        const char* operation;
        std::function<void()> call;
    } rows[] = {
        {"createSession", [&] { create(); }},
        {"getSession", [&] { m_factory.getSession(&request); }},
        {"onRequest", [&] { m_factory.onRequest(&request); }},
        {"onRequestFinished", [&] { m_factory.onRequestFinished(&request); }},
        {"existSession", [&] { m_factory.existSession(id); }},
        {"checkSession", [&] { m_factory.checkSession(); }},
        {"onTimer", [&] { m_factory.onTimer(); }},
        {"removeSession",
         [&] {
             m_factory.removeSession(id);
             delete session;
         }},
        {"removeSession, unknown", [&] { m_factory.removeSession(id); }},
        {"existSession, unknown", [&] { m_factory.existSession(id); }},
        {"endSession, unknown", [&] { m_factory.endSession(&unknown); }},
        {"destory", [&] { m_factory.destory(); }},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(waitsForTheTableMutex(row.call)) << row.operation;
}

TEST_F(SessionTableMutex, DoesNotBlockOtherOperations) {
    HttpSessionImpl* session = create();
    FakeRequest request = requestOf(session);
    const struct {
        const char* operation;
        std::function<void()> call;
    } rows[] = {
        {"construction and destruction", [] { SessionFactory other; }},
        {"init", [&] { m_factory.init(); }},
        {"sessionNum", [&] { m_factory.sessionNum(); }},
        {"findSession", [&] { EXPECT_EQ(m_factory.findSession(&request), session); }},
    };
    for (const auto& row : rows)
        EXPECT_FALSE(waitsForTheTableMutex(row.call)) << row.operation;
}

TEST_F(SessionTableMutex, IsHeldWithTheSessionMutexOnlyToInvalidate) {
    HttpSessionImpl* session = create();
    FakeRequest request = requestOf(session);
    std::string id = session->getId();
    const struct {
        const char* operation;
        std::function<void()> call;
    } rows[] = {
        {"createSession", [&] { create(); }},
        {"getSession", [&] { m_factory.getSession(&request); }},
        {"onRequest", [&] { m_factory.onRequest(&request); }},
        {"onRequestFinished", [&] { m_factory.onRequestFinished(&request); }},
        {"existSession", [&] { m_factory.existSession(id); }},
        {"checkSession with nothing expired", [&] { m_factory.checkSession(); }},
        {"removeSession",
         [&] {
             m_factory.removeSession(id);
             delete session;
         }},
    };
    for (const auto& row : rows) {
        pthread_mutex_lock(&session_mutex);
        {
            BackgroundCall call(row.call);
            EXPECT_FALSE(call.waits()) << row.operation;
            pthread_mutex_unlock(&session_mutex);
        }
    }
}

TEST_F(SessionTableMutex, IsLockedBeforeTheSessionMutexByTheSweep) {
    createExpired();
    HeldSweep sweep(m_factory); // waits for session_mutex with the table mutex in its hands
    BackgroundCall creation([this] { create(); });
    EXPECT_TRUE(creation.waits());
    EXPECT_EQ(table()->m_nCount, 1);
    sweep.release();
}

TEST_F(SessionTableMutex, IsLockedBeforeTheSessionMutexByDestory) {
    create();
    pthread_mutex_lock(&session_mutex);
    BackgroundCall end([this] { m_factory.destory(); });
    EXPECT_TRUE(end.waits());
    BackgroundCall creation([this] { create(); });
    EXPECT_TRUE(creation.waits());
    pthread_mutex_unlock(&session_mutex);
}

TEST_F(SessionTableMutex, IsLockedBeforeASessionIsCreated) {
    createExpired();
    HttpSessionImpl* created = nullptr;
    {
        HeldSweep sweep(m_factory);
        BackgroundCall call([&] { created = create(); });
        EXPECT_TRUE(call.waits());
        test_clock::advanceSeconds(10);
        sweep.release();
    }
    EXPECT_EQ(created->getCreateTime(), test_clock::seconds() + 300);
}

// existSession() and removeSession() look the id up before they lock the mutex.

TEST_F(SessionTableMutex, IsLockedByExistSessionOnlyAfterTheLookUp) {
    std::string id = createExpired()->getId();
    bool found = false;
    {
        HeldSweep sweep(m_factory);
        BackgroundCall call([&] { found = m_factory.existSession(id); });
        EXPECT_TRUE(call.waits());
        sweep.release();
    }
    EXPECT_TRUE(found);
    EXPECT_FALSE(m_factory.existSession(id));
}

TEST_F(SessionTableMutex, IsLockedByRemoveSessionOnlyAfterTheLookUp) {
    createExpired();
    auto* late = new WatchedSession(m_ends, true);
    std::string id = late->getId();
    {
        HeldSweep sweep(m_factory);
        BackgroundCall call([&] { m_factory.removeSession(id); });
        EXPECT_TRUE(call.waits());
        adopt(late);
        sweep.release();
    }
    EXPECT_TRUE(m_factory.existSession(id));
}

TEST_F(SessionTableMutex, LetsManyThreadsServeAndSweepAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([this, number] {
            int value = 0;
            std::string address = "192.0.2." + std::to_string(number);
            HttpSessionImpl* kept = m_factory.createSession(address);
            FakeRequest request(kept->getId().c_str(), address.c_str());
            for (int round = 0; round < kRounds; ++round) {
                m_factory.onRequest(&request);
                EXPECT_EQ(m_factory.getSession(&request), kept);
                EXPECT_TRUE(kept->setAttribute("round", &value));
                m_factory.onRequestFinished(&request);

                HttpSessionImpl* brief = m_factory.createSession(address);
                FakeRequest briefRequest(brief->getId().c_str(), address.c_str());
                m_factory.onRequestFinished(&briefRequest);
                EXPECT_EQ(m_factory.getSession(&briefRequest), brief);
            }
        });
    threads.emplace_back([this] {
        for (int round = 0; round < kRounds; ++round)
            m_factory.onTimer();
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_factory.sessionNum(), kThreads * (kRounds + 1));
    EXPECT_TRUE(recorded_log::records().empty());
    test_clock::advanceSeconds(180);
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
}

TEST_F(SessionTableMutex, LetsASweepDeleteWhileOthersServe) {
    constexpr int kThreads = 3;
    std::atomic<int> serving{kThreads};
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([this, &serving] {
            int value = 0;
            std::string address = "192.0.2.1";
            for (int round = 0; round < 300; ++round) {
                HttpSessionImpl* session = m_factory.createSession(address);
                FakeRequest request = requestOf(session);
                EXPECT_TRUE(session->setAttribute("user", &value));
                EXPECT_EQ(session->getAttribute("user"), &value);
                m_factory.onRequestFinished(&request);
                // From here on a sweep may delete the session, after locking the mutex.
                pthread_mutex_lock(&session_mutex);
                session->setMaxInactiveInterval(0);
                pthread_mutex_unlock(&session_mutex);
            }
            --serving;
        });
    while (serving > 0)
        m_factory.onTimer();
    for (std::thread& thread : threads)
        thread.join();
    m_factory.onTimer();
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>(kThreads * 300, kUserCleared));
}

} // namespace
