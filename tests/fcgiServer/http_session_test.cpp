#include "http_session.h"

#include "background_call.h"
#include "counted_memory.h"
#include "web_debug.h"
#include <kit/testing/test_clock.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sys/times.h>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace kit::testing;

// The state of a session when it called WebDebug::setUser().
struct SetUserCall {
    bool isNull;
    bool locked;
    bool valid;
    int attributes;
};
std::vector<SetUserCall> setUserCalls;
const HttpSessionImpl* watchedSession = nullptr;

bool isLocked(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) == EBUSY)
        return true;
    pthread_mutex_unlock(&mutex);
    return false;
}

// Seconds that pass after each reading of the clock.
long secondsPerReading = 0;

} // namespace

// The linker puts this in the place of times(2).
extern "C" {
clock_t __real_times(struct tms* buffer);

clock_t __wrap_times(struct tms* buffer) {
    const clock_t now = __real_times(buffer);
    test_clock::advanceSeconds(secondsPerReading);
    return now;
}
}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}

void WebDebug::setUser(const char* user) {
    setUserCalls.push_back({user == nullptr, isLocked(session_mutex), watchedSession->m_bValid,
                            watchedSession->m_attributes.m_nCount});
}

namespace {

constexpr int kOffset = 300;

class Sessions : public testing::Test {
protected:
    Sessions() {
        test_clock::setTicks(100000);
        m_session = std::make_unique<HttpSessionImpl>(m_address);
        watchedSession = m_session.get();
        setUserCalls.clear();
    }
    ~Sessions() override {
        secondsPerReading = 0;
        test_clock::setTicks(100000);
    }

    // Calls `operation` while another thread holds session_mutex. Returns whether it waits for it.
    static bool waitsForTheMutex(const std::function<void()>& operation) {
        pthread_mutex_lock(&session_mutex);
        BackgroundCall call(operation);
        const bool waits = call.waits();
        pthread_mutex_unlock(&session_mutex);
        return waits;
    }

    int attributeCount() const { return m_session->m_attributes.m_nCount; }

    const std::string m_address = "192.0.2.17";
    std::unique_ptr<HttpSessionImpl> m_session;
    int m_one = 1;
    int m_other = 2;
};
using SessionIds = Sessions;
using SessionTimes = Sessions;
using SessionAttributes = Sessions;
using SessionMutex = Sessions;
using SessionInterface = Sessions;

// Ids

std::string expectedId(const void* addressText, int createTime, const void* session) {
    char id[64];
    std::snprintf(id, sizeof id, "%x%d%x",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(addressText)),
                  createTime, static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(session)));
    return id;
}

TEST_F(SessionIds, ConsistOfTheAddressOfTheTextTheTimeAndTheSession) {
    EXPECT_EQ(m_session->getId(), expectedId(m_address.data(), 1300, m_session.get()));
    EXPECT_EQ(m_session->m_id, m_session->getId());
    EXPECT_EQ(&m_session->getId(), &m_session->m_id);
}

TEST_F(SessionIds, UseTheCallersTextNotACopy) {
    const std::string sameText = m_address.c_str();
    ASSERT_NE(sameText.data(), m_address.data());
    const HttpSessionImpl session(sameText);
    EXPECT_EQ(session.m_id, expectedId(sameText.data(), 1300, &session));
}

TEST_F(SessionIds, HaveASignedTime) {
    test_clock::setTicks(-100000);
    const HttpSessionImpl session(m_address);
    EXPECT_EQ(session.m_id, expectedId(m_address.data(), -700, &session));
    EXPECT_NE(session.m_id.find("-700"), std::string::npos);
}

TEST_F(SessionIds, FitTheLongestTime) {
    const long long ticks = std::min<long long>(LONG_MAX, (INT_MAX - kOffset) * 100LL);
    test_clock::setTicks(static_cast<long>(ticks));
    const HttpSessionImpl session(m_address);
    const int createTime = static_cast<int>(ticks / 100) + kOffset;
    EXPECT_EQ(session.m_id, expectedId(m_address.data(), createTime, &session));
}

TEST_F(SessionIds, DifferBetweenLivingSessions) {
    const HttpSessionImpl other(m_address);
    EXPECT_NE(other.m_id, m_session->getId());
}

TEST_F(SessionIds, NeverChange) {
    const std::string id = m_session->getId();
    test_clock::advanceSeconds(1000);
    m_session->update();
    m_session->invalidate();
    EXPECT_EQ(m_session->getId(), id);
}

// Times

TEST_F(SessionTimes, AreNowPlusThreeHundredSecondsInANewSession) {
    EXPECT_EQ(m_session->getCreateTime(), test_clock::seconds() + kOffset);
    EXPECT_EQ(m_session->getLastAccessedTime(), test_clock::seconds() + kOffset);
    EXPECT_EQ(m_session->getMaxInactiveInterval(), 180);
}

TEST_F(SessionTimes, AreEqualInANewSessionHoweverFastTheClockRuns) {
    secondsPerReading = 7;
    HttpSessionImpl session(m_address);
    secondsPerReading = 0;
    EXPECT_EQ(session.getCreateTime(), 1300);
    EXPECT_EQ(session.getLastAccessedTime(), 1300);
    EXPECT_EQ(session.getId(), expectedId(m_address.data(), 1300, &session));
}

TEST_F(SessionTimes, AreWholeSecondsRoundedTowardsZero) {
    const struct {
        long ticks;
        int seconds;
    } rows[] = {{0, 0}, {99, 0}, {100, 1}, {199, 1}, {200, 2}, {-99, 0}, {-100, -1}, {-199, -1}};
    for (const auto& row : rows) {
        test_clock::setTicks(row.ticks);
        HttpSessionImpl session(m_address);
        EXPECT_EQ(session.getCreateTime(), row.seconds + kOffset) << row.ticks << " ticks";
        EXPECT_EQ(session.getLastAccessedTime(), row.seconds + kOffset) << row.ticks << " ticks";
        m_session->update();
        EXPECT_EQ(m_session->getLastAccessedTime(), row.seconds + kOffset) << row.ticks;
    }
}

TEST_F(SessionTimes, FollowTheLastAccess) {
    test_clock::advanceSeconds(50);
    EXPECT_EQ(m_session->getLastAccessedTime(), 1300);
    m_session->update();
    EXPECT_EQ(m_session->getLastAccessedTime(), 1350);
    EXPECT_EQ(m_session->getCreateTime(), 1300);
}

TEST_F(SessionTimes, AreNotChangedByReadingTheSession) {
    test_clock::advanceSeconds(50);
    m_session->setAttribute("a", &m_one);
    m_session->getAttribute("a");
    m_session->existAttribute("a");
    m_session->removeAttribute("a");
    m_session->isValidate();
    m_session->setMaxInactiveInterval(5);
    m_session->invalidate();
    EXPECT_EQ(m_session->getLastAccessedTime(), 1300);
}

TEST_F(SessionTimes, ExpireASessionThatIsIdleForItsInterval) {
    test_clock::advanceSeconds(179);
    EXPECT_TRUE(m_session->isValidate());
    test_clock::advanceSeconds(1);
    EXPECT_FALSE(m_session->isValidate());
    EXPECT_TRUE(m_session->m_bValid); // expiry alone changes nothing
    EXPECT_TRUE(setUserCalls.empty());
}

TEST_F(SessionTimes, CountIdleSecondsFromTheLastAccess) {
    test_clock::advanceSeconds(100);
    m_session->update();
    test_clock::advanceSeconds(179);
    EXPECT_TRUE(m_session->isValidate());
    test_clock::advanceSeconds(1);
    EXPECT_FALSE(m_session->isValidate());
    m_session->update();
    EXPECT_TRUE(m_session->isValidate());
}

TEST_F(SessionTimes, CountTheSecondsThatTheClockShows) {
    test_clock::setTicks(100099);
    m_session->update();
    test_clock::setTicks(117999); // 179.00 seconds later
    EXPECT_TRUE(m_session->isValidate());
    test_clock::setTicks(118000); // 179.01 seconds later, in the 180th second
    EXPECT_FALSE(m_session->isValidate());
}

TEST_F(SessionTimes, FollowTheIntervalAsItIsSet) {
    const struct {
        int interval;
        int idle;
        bool valid;
    } rows[] = {
        {1, 0, true},      {1, 1, false},       {0, 0, false},
        {-1, 0, false},    {-1, 5, false},      {INT_MIN, 0, false},
        {1000, 999, true}, {1000, 1000, false}, {INT_MAX, 1000000, true},
    };
    for (const auto& row : rows) {
        m_session->update();
        m_session->setMaxInactiveInterval(row.interval);
        EXPECT_EQ(m_session->getMaxInactiveInterval(), row.interval);
        test_clock::advanceSeconds(row.idle);
        EXPECT_EQ(m_session->isValidate(), row.valid) << row.interval << ", " << row.idle;
    }
}

TEST_F(SessionTimes, KeepASessionValidWhenTheClockGoesBack) {
    test_clock::advanceSeconds(-500);
    EXPECT_TRUE(m_session->isValidate());
    test_clock::setTicks(-100000);
    EXPECT_TRUE(m_session->isValidate());
}

#if LONG_MAX > INT_MAX
TEST_F(SessionTimes, KeepASessionValidHoweverFarA64BitClockGoesBack) {
    constexpr long kDay = 24L * 60 * 60;
    test_clock::advanceSeconds(400 * kDay);
    m_session->update();
    for (const long days : {200, 248, 249, 300, 400}) {
        test_clock::setTicks(100000 + (400 - days) * kDay * 100);
        EXPECT_TRUE(m_session->isValidate()) << days << " days";
    }
}
#else
TEST_F(SessionTimes, ContinueWhenA32BitClockWraps) {
    test_clock::setTicks(LONG_MAX - 50 * 100);
    m_session->update();
    test_clock::advanceSeconds(178);
    ASSERT_LT(test_clock::seconds(), 0);
    EXPECT_TRUE(m_session->isValidate());
    test_clock::advanceSeconds(3); // 2^32 ticks are not a whole number of seconds
    EXPECT_FALSE(m_session->isValidate());
    m_session->update();
    EXPECT_TRUE(m_session->isValidate());
}
#endif

TEST_F(SessionTimes, DoNotReviveAnInvalidatedSession) {
    m_session->invalidate();
    EXPECT_FALSE(m_session->isValidate());
    m_session->update();
    m_session->setMaxInactiveInterval(INT_MAX);
    EXPECT_FALSE(m_session->isValidate());
}

// Attributes

TEST_F(SessionAttributes, AreReturnedAsTheyWereSet) {
    EXPECT_TRUE(m_session->setAttribute("user", &m_one));
    EXPECT_TRUE(m_session->setAttribute("User", &m_other));
    EXPECT_EQ(m_session->getAttribute("user"), &m_one);
    EXPECT_EQ(m_session->getAttribute("User"), &m_other);
    EXPECT_TRUE(m_session->existAttribute("user"));
    EXPECT_EQ(attributeCount(), 2);
}

TEST_F(SessionAttributes, AreAbsentUntilTheyAreSet) {
    EXPECT_EQ(m_session->getAttribute("user"), nullptr);
    EXPECT_FALSE(m_session->existAttribute("user"));
    m_session->removeAttribute("user");
    m_session->setAttribute("user", &m_one);
    EXPECT_FALSE(m_session->existAttribute("use"));
    EXPECT_FALSE(m_session->existAttribute("users"));
    EXPECT_EQ(attributeCount(), 1); // looking an attribute up adds none
}

TEST_F(SessionAttributes, AreReplacedNotAdded) {
    m_session->setAttribute("user", &m_one);
    EXPECT_TRUE(m_session->setAttribute("user", &m_other));
    EXPECT_EQ(attributeCount(), 1);
    EXPECT_EQ(m_session->getAttribute("user"), &m_other);
    EXPECT_EQ(m_one, 1); // nothing freed or changed what the pointers point to
}

TEST_F(SessionAttributes, AreAbsentAfterTheyAreRemoved) {
    m_session->setAttribute("user", &m_one);
    m_session->setAttribute("page", &m_other);
    m_session->removeAttribute("user");
    EXPECT_EQ(m_session->getAttribute("user"), nullptr);
    EXPECT_FALSE(m_session->existAttribute("user"));
    EXPECT_EQ(m_session->getAttribute("page"), &m_other);
    EXPECT_EQ(attributeCount(), 1);
    m_session->removeAttribute("nobody");
    EXPECT_EQ(attributeCount(), 1);
    EXPECT_EQ(m_one, 1);
}

TEST_F(SessionAttributes, NeedANameAndAValue) {
    EXPECT_FALSE(m_session->setAttribute("user", nullptr));
    EXPECT_FALSE(m_session->setAttribute("", &m_one));
    EXPECT_FALSE(m_session->setAttribute(nullptr, &m_one));
    EXPECT_FALSE(m_session->setAttribute(nullptr, nullptr));
    EXPECT_FALSE(m_session->setAttribute("", nullptr));
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_EQ(m_session->getAttribute(nullptr), nullptr);
    EXPECT_EQ(m_session->getAttribute(""), nullptr);
    EXPECT_FALSE(m_session->existAttribute(nullptr));
    EXPECT_FALSE(m_session->existAttribute(""));
    m_session->removeAttribute(nullptr);
    m_session->removeAttribute("");
}

TEST_F(SessionAttributes, KeepTheirValueWhenANullValueIsSet) {
    m_session->setAttribute("user", &m_one);
    EXPECT_FALSE(m_session->setAttribute("user", nullptr));
    EXPECT_EQ(m_session->getAttribute("user"), &m_one);
}

TEST_F(SessionAttributes, KeepTheirOwnNames) {
    char name[] = "user";
    m_session->setAttribute(name, &m_one);
    name[0] = 'X';
    EXPECT_EQ(m_session->getAttribute("user"), &m_one);
}

TEST_F(SessionAttributes, BelongToOneSession) {
    HttpSessionImpl other(m_address);
    m_session->setAttribute("user", &m_one);
    EXPECT_FALSE(other.existAttribute("user"));
    EXPECT_EQ(other.getAttribute("user"), nullptr);
}

TEST_F(SessionAttributes, AreRemovedWhenTheSessionIsInvalidated) {
    m_session->setAttribute("user", &m_one);
    m_session->setAttribute("page", &m_other);
    m_session->invalidate();
    EXPECT_FALSE(m_session->existAttribute("user"));
    EXPECT_EQ(m_session->getAttribute("page"), nullptr);
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_EQ(m_session->m_attributes.m_pHashTable, nullptr);
    EXPECT_EQ(m_session->m_attributes.m_pBlocks, nullptr);
    EXPECT_EQ(m_one, 1);
    EXPECT_EQ(m_other, 2);
}

TEST_F(SessionAttributes, AreAcceptedButNotStoredInAnInvalidSession) {
    m_session->invalidate();
    EXPECT_TRUE(m_session->setAttribute("user", &m_one));
    EXPECT_EQ(m_session->getAttribute("user"), nullptr);
    EXPECT_FALSE(m_session->existAttribute("user"));
    m_session->removeAttribute("user");
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_FALSE(m_session->setAttribute("", &m_one));
    EXPECT_FALSE(m_session->setAttribute("user", nullptr));
}

TEST_F(SessionAttributes, AreNeitherReadNorRemovedInAnInvalidSession) {
    m_session->setAttribute("user", &m_one);
    m_session->m_bValid = false; // as a reader sees it in the middle of invalidate()
    EXPECT_EQ(m_session->getAttribute("user"), nullptr);
    EXPECT_FALSE(m_session->existAttribute("user"));
    m_session->removeAttribute("user");
    m_session->setAttribute("user", &m_other);
    m_session->m_bValid = true;
    EXPECT_EQ(m_session->getAttribute("user"), &m_one);
}

TEST_F(SessionAttributes, AreKeptInAnExpiredSessionUntilItIsInvalidated) {
    m_session->setAttribute("user", &m_one);
    test_clock::advanceSeconds(1000);
    EXPECT_EQ(m_session->getAttribute("user"), &m_one);
    EXPECT_TRUE(m_session->setAttribute("page", &m_other));
    EXPECT_EQ(m_session->getAttribute("page"), &m_other);
}

TEST_F(SessionAttributes, AreFreedWithTheSession) {
    const long live = counted_memory::live();
    {
        HttpSessionImpl session(std::string(100, 'a'));
        for (int number = 0; number < 25; ++number)
            session.setAttribute(
                ("a name of the twenty-five names " + std::to_string(number)).c_str(), &m_one);
    }
    EXPECT_EQ(counted_memory::live(), live);
    EXPECT_EQ(m_one, 1);
    EXPECT_TRUE(setUserCalls.empty()); // destruction does not invalidate
}

TEST_F(SessionAttributes, UnlockTheMutexWhenMemoryRunsOut) {
    for (const int successes : {0, 1}) {
        counted_memory::failAfter(successes);
        EXPECT_THROW(m_session->setAttribute("user", &m_one), std::bad_alloc);
        counted_memory::cancelFailure();
        EXPECT_FALSE(isLocked(session_mutex));
        EXPECT_FALSE(m_session->existAttribute("user"));
        m_session->m_attributes.clear();
    }
    EXPECT_TRUE(m_session->setAttribute("user", &m_one));
}

TEST_F(SessionAttributes, CanBeUsedByManyThreadsAtOnce) {
    HttpSessionImpl other(m_address);
    std::vector<std::thread> threads;
    for (const char* name : {"a", "b", "c", "d"})
        threads.emplace_back([&, name] {
            for (int round = 0; round < 2000; ++round) {
                HttpSessionImpl& session = round % 2 == 0 ? *m_session : other;
                EXPECT_TRUE(session.setAttribute(name, &m_one));
                EXPECT_EQ(session.getAttribute(name), &m_one);
                session.removeAttribute(name);
                EXPECT_FALSE(session.existAttribute(name));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_EQ(other.m_attributes.m_nCount, 0);
}

// Invalidation

TEST_F(Sessions, StartValidAndBusy) {
    EXPECT_TRUE(m_session->m_bValid);
    EXPECT_TRUE(m_session->m_bInRequest);
    EXPECT_TRUE(m_session->isValidate());
    EXPECT_EQ(m_session->m_remoteAddr, m_address);
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_EQ(m_session->m_attributes.m_nHashTableSize, 100u);
    EXPECT_EQ(m_session->m_attributes.m_nBlockSize, 10);
    EXPECT_FALSE(m_session->m_attributes.m_bMultiValue);
    EXPECT_EQ(m_session->m_attributes.m_pHashTable, nullptr);
    EXPECT_TRUE(setUserCalls.empty());
}

TEST_F(Sessions, KeepTheirOwnAddress) {
    std::string address = "192.0.2.1";
    const HttpSessionImpl session(address);
    address = "198.51.100.1";
    EXPECT_EQ(session.m_remoteAddr, "192.0.2.1");
}

TEST_F(Sessions, ClearTheUserOfTheLogOnceWhenInvalidated) {
    m_session->setAttribute("user", &m_one);
    EXPECT_TRUE(setUserCalls.empty());
    m_session->invalidate();
    ASSERT_EQ(setUserCalls.size(), 1u);
    EXPECT_TRUE(setUserCalls[0].isNull);
    EXPECT_TRUE(setUserCalls[0].locked);
    EXPECT_FALSE(setUserCalls[0].valid);
    EXPECT_EQ(setUserCalls[0].attributes, 0);
    EXPECT_FALSE(isLocked(session_mutex));
    EXPECT_FALSE(m_session->m_bValid);

    m_session->invalidate(); // again, like the first time
    EXPECT_EQ(setUserCalls.size(), 2u);
}

TEST_F(Sessions, KeepTheirBusyFlagWhenInvalidated) {
    m_session->invalidate();
    EXPECT_TRUE(m_session->m_bInRequest);
    EXPECT_EQ(m_session->getCreateTime(), 1300);
    EXPECT_EQ(m_session->getMaxInactiveInterval(), 180);
    EXPECT_EQ(m_session->m_remoteAddr, m_address);
}

// Locks

TEST_F(SessionMutex, IsOneAndNotRecursive) {
    EXPECT_FALSE(isLocked(session_mutex));
    pthread_mutex_lock(&session_mutex);
    EXPECT_TRUE(isLocked(session_mutex)); // also for the thread that holds it
    pthread_mutex_unlock(&session_mutex);
}

TEST_F(SessionMutex, BlocksAttributeOperationsAndInvalidation) {
    const struct {
        const char* operation;
        std::function<void()> call;
    } rows[] = {
        {"setAttribute", [&] { m_session->setAttribute("a", &m_one); }},
        {"getAttribute", [&] { m_session->getAttribute("a"); }},
        {"existAttribute", [&] { m_session->existAttribute("a"); }},
        {"removeAttribute", [&] { m_session->removeAttribute("a"); }},
        {"invalidate", [&] { m_session->invalidate(); }},
        {"setAttribute, invalid", [&] { m_session->setAttribute("a", &m_one); }},
        {"getAttribute, invalid", [&] { m_session->getAttribute("a"); }},
        {"existAttribute, invalid", [&] { m_session->existAttribute("a"); }},
        {"removeAttribute, invalid", [&] { m_session->removeAttribute("a"); }},
        {"invalidate, invalid", [&] { m_session->invalidate(); }},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(waitsForTheMutex(row.call)) << row.operation;
        EXPECT_FALSE(isLocked(session_mutex)) << row.operation;
    }
}

TEST_F(SessionMutex, BlocksInvalidationBeforeItChangesAnything) {
    m_session->setAttribute("a", &m_one);
    pthread_mutex_lock(&session_mutex);
    BackgroundCall call([&] { m_session->invalidate(); });
    EXPECT_TRUE(call.waits());
    EXPECT_TRUE(m_session->m_bValid);
    EXPECT_EQ(attributeCount(), 1);
    EXPECT_TRUE(setUserCalls.empty());
    pthread_mutex_unlock(&session_mutex);
}

TEST_F(SessionMutex, DoesNotBlockReadsOfTimesAndId) {
    const struct {
        const char* operation;
        std::function<void()> call;
    } rows[] = {
        {"setAttribute, null name", [&] { m_session->setAttribute(nullptr, &m_one); }},
        {"setAttribute, empty name", [&] { m_session->setAttribute("", &m_one); }},
        {"setAttribute, null value", [&] { m_session->setAttribute("a", nullptr); }},
        {"getAttribute, null name", [&] { m_session->getAttribute(nullptr); }},
        {"getAttribute, empty name", [&] { m_session->getAttribute(""); }},
        {"existAttribute, null name", [&] { m_session->existAttribute(nullptr); }},
        {"existAttribute, empty name", [&] { m_session->existAttribute(""); }},
        {"removeAttribute, null name", [&] { m_session->removeAttribute(nullptr); }},
        {"removeAttribute, empty name", [&] { m_session->removeAttribute(""); }},
        {"getId", [&] { m_session->getId(); }},
        {"isValidate", [&] { m_session->isValidate(); }},
        {"update", [&] { m_session->update(); }},
        {"getCreateTime", [&] { m_session->getCreateTime(); }},
        {"getLastAccessedTime", [&] { m_session->getLastAccessedTime(); }},
        {"getMaxInactiveInterval", [&] { m_session->getMaxInactiveInterval(); }},
        {"setMaxInactiveInterval", [&] { m_session->setMaxInactiveInterval(9); }},
        {"construction", [&] { HttpSessionImpl other(m_address); }},
        {"destruction, valid with attributes", [&] { m_session.reset(); }},
    };
    m_session->setAttribute("a", &m_one);
    for (const auto& row : rows)
        EXPECT_FALSE(waitsForTheMutex(row.call)) << row.operation;
}

// Binary interface

using Slot = void (*)();

Slot slotOf(HttpSession* session, int number) {
    return (*reinterpret_cast<Slot**>(session))[number];
}

// Calls a slot of the virtual table as a compiled plug-in does.
template <class RESULT, class... ARGUMENTS>
RESULT callSlot(HttpSession* session, int number, ARGUMENTS... arguments) {
    using Function = RESULT (*)(HttpSession*, ARGUMENTS...);
    return reinterpret_cast<Function>(slotOf(session, number))(session, arguments...);
}

TEST_F(SessionInterface, HasItsOperationsInTheirOrder) {
    HttpSession* session = m_session.get();
    void* value = &m_one;
    const char* name = "user";
    EXPECT_EQ(&callSlot<const std::string&>(session, 0), &m_session->m_id);
    EXPECT_TRUE(callSlot<bool>(session, 1, name, value));
    EXPECT_EQ(attributeCount(), 1);
    EXPECT_EQ(callSlot<void*>(session, 2, name), value);
    EXPECT_TRUE(callSlot<bool>(session, 4, name));
    callSlot<void>(session, 3, name);
    EXPECT_EQ(attributeCount(), 0);
    EXPECT_FALSE(callSlot<bool>(session, 4, name));
    test_clock::advanceSeconds(5);
    m_session->update();
    EXPECT_EQ(callSlot<int>(session, 6), 1300);
    EXPECT_EQ(callSlot<int>(session, 7), 1305);
    callSlot<void>(session, 8, 77);
    EXPECT_EQ(m_session->m_maxInactiveInterval, 77);
    EXPECT_EQ(callSlot<int>(session, 9), 77);
    EXPECT_TRUE(m_session->m_bValid);
    callSlot<void>(session, 5);
    EXPECT_FALSE(m_session->m_bValid);
}

int destructions = 0;
int deletions = 0;

class WatchedSession : public HttpSessionImpl {
public:
    using HttpSessionImpl::HttpSessionImpl;
    ~WatchedSession() override { ++destructions; }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* memory) {
        ++deletions;
        ::operator delete(memory);
    }
};

TEST_F(SessionInterface, HasTheTwoDestructorsAfterItsOperations) {
    destructions = deletions = 0;
    alignas(WatchedSession) unsigned char memory[sizeof(WatchedSession)];
    HttpSession* inPlace = ::new (static_cast<void*>(memory)) WatchedSession(m_address);
    callSlot<void>(inPlace, 10);
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(deletions, 0);

    HttpSession* onTheHeap = new WatchedSession(m_address);
    callSlot<void>(onTheHeap, 11);
    EXPECT_EQ(destructions, 2);
    EXPECT_EQ(deletions, 1);
}

TEST_F(SessionInterface, IsAbstractAndCannotBeDeletedThroughIt) {
    EXPECT_TRUE(std::is_abstract_v<HttpSession>);
    EXPECT_FALSE(std::has_virtual_destructor_v<HttpSession>);
    EXPECT_FALSE(std::is_destructible_v<HttpSession>);
    EXPECT_EQ(sizeof(HttpSession), sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor_v<HttpSessionImpl>);
    EXPECT_EQ(static_cast<void*>(static_cast<HttpSession*>(m_session.get())), m_session.get());
}

TEST_F(SessionInterface, HasTheFieldsInTheirOrder) {
    const auto offset = [this](const void* field) {
        return static_cast<std::size_t>(static_cast<const char*>(field) -
                                        reinterpret_cast<const char*>(m_session.get()));
    };
    const std::size_t createTime = sizeof(void*) + sizeof(std::string);
    const std::size_t address = createTime + 16; // two bytes of which are padding
    EXPECT_EQ(offset(&m_session->m_id), sizeof(void*));
    EXPECT_EQ(offset(&m_session->m_createTime), createTime);
    EXPECT_EQ(offset(&m_session->m_lastAccessedTime), createTime + 4);
    EXPECT_EQ(offset(&m_session->m_maxInactiveInterval), createTime + 8);
    EXPECT_EQ(offset(&m_session->m_bValid), createTime + 12);
    EXPECT_EQ(offset(&m_session->m_bInRequest), createTime + 13);
    EXPECT_EQ(offset(&m_session->m_remoteAddr), address);
    EXPECT_EQ(offset(&m_session->m_attributes), address + sizeof(std::string));
    EXPECT_EQ(sizeof(HttpSessionImpl),
              address + sizeof(std::string) + sizeof(m_session->m_attributes));
    EXPECT_TRUE((std::is_same_v<decltype(m_session->m_attributes),
                                QKHashMap<std::string, void*, INT_HASH<std::string>>>));
}

} // namespace
