#include "lingering_close.h"

#include "base/mutex_lock.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kLingerTimeout{2000}; // libfcgi's default
// Front servers close most connections within a millisecond. Taking those of a longer time at once
// saves the thread a wake-up for each.
constexpr milliseconds kRound{10};
constexpr std::size_t kMost = 32; // handed over but not yet taken; and as many that linger
constexpr int kReadsAtOnce = 16;  // so that one busy connection does not hold up the others
constexpr std::size_t kStackBytes = 64 * 1024;

// Discards what has arrived. Returns false once nothing more can arrive.
bool mayReceiveMore(int connection) {
    char discarded[4096];
    for (int i = 0; i < kReadsAtOnce; ++i) {
        const ssize_t size = recv(connection, discarded, sizeof discarded, MSG_DONTWAIT);
        if (size <= 0)
            return size < 0 && errno == EAGAIN;
    }
    return true;
}

// What the request loops hand over to the thread. A process may exit while the thread runs, so this
// has no destructor.
struct Handover {
    int connections[kMost];
    std::size_t count;
    bool isWatched;
    bool isAsleep; // until it is woken
    bool isEnding;
    // Changed only while there is no thread.
    pthread_t thread;
    int wakeUp; // an eventfd(2)
};
static_assert(std::is_trivial_v<Handover>);
Handover handover{}; // guarded by the mutex
pthread_mutex_t handoverMutex = PTHREAD_MUTEX_INITIALIZER;

// The thread and its connections, oldest first.
class Watcher {
public:
    explicit Watcher(int wakeUp) { m_polled[0] = {wakeUp, POLLIN, 0}; }
    ~Watcher() {
        keepIf([](std::size_t) { return false; });
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    // Runs until it must end and has no connection left. The loops of another server may hand over
    // more meanwhile: for those it does not wait.
    void run() {
        auto end = Clock::time_point::max();
        while (Clock::now() < end) {
            sleep();
            if (takeOver())
                end = std::min(end, Clock::now() + kLingerTimeout);
            closeEnded();
            if (end != Clock::time_point::max() && m_count == 0)
                return;
        }
    }

private:
    // Waits until a connection has news or is due, for one round at most if the loops are busy.
    void sleep() {
        if (m_isAsleep) {
            poll(m_polled, 1 + m_count, millisecondsToDeadline());
            if (m_polled[0].revents == 0)
                return;
            eventfd_t wakeUps = 0;
            eventfd_read(m_polled[0].fd, &wakeUps);
        }
        poll(m_polled + 1, m_count, static_cast<int>(kRound.count()));
    }

    int millisecondsToDeadline() const {
        if (m_count == 0)
            return -1;
        const auto left = std::chrono::ceil<milliseconds>(m_deadlines[0] - Clock::now());
        return static_cast<int>(std::max(left, milliseconds(0)).count());
    }

    // Returns whether the thread must end.
    bool takeOver() {
        const base::MutexLock lock(handoverMutex);
        for (std::size_t i = 0; i < handover.count; ++i)
            add(handover.connections[i]);
        m_isAsleep = handover.isAsleep = handover.count == 0;
        handover.count = 0;
        return handover.isEnding;
    }

    void add(int connection) {
        if (m_count == kMost)
            keepIf([this](std::size_t index) { return mayReceiveMore(m_polled[1 + index].fd); });
        if (m_count == kMost)
            keepIf([](std::size_t index) { return index > 0; });
        m_polled[1 + m_count] = {connection, POLLIN, POLLIN};
        m_deadlines[m_count] = Clock::now() + kLingerTimeout;
        ++m_count;
    }

    void closeEnded() {
        const auto now = Clock::now();
        keepIf([&](std::size_t index) {
            const pollfd& polled = m_polled[1 + index];
            return now < m_deadlines[index] && (polled.revents == 0 || mayReceiveMore(polled.fd));
        });
    }

    template <class Predicate>
    void keepIf(Predicate isKept) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_count; ++i) {
            if (!isKept(i)) {
                close(m_polled[1 + i].fd);
                continue;
            }
            m_polled[1 + kept] = m_polled[1 + i];
            m_deadlines[kept] = m_deadlines[i];
            ++kept;
        }
        m_count = kept;
    }

    pollfd m_polled[1 + kMost]; // the eventfd, then the connections
    Clock::time_point m_deadlines[kMost];
    std::size_t m_count = 0;
    bool m_isAsleep = false;
};

void* watch(void*) {
    Watcher(handover.wakeUp).run();
    return nullptr;
}

bool createThread() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    // The thread inherits the mask: signals are for the host's own threads.
    pthread_sigmask(SIG_BLOCK, &all, &before);
    const int failure = pthread_create(&handover.thread, &attributes, watch, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return failure == 0;
}

bool startWatching() {
    base::Descriptor wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    handover.wakeUp = wakeUp.get();
    if (!wakeUp || !createThread())
        return false;
    wakeUp.release();
    return true;
}

void wake() {
    if (std::exchange(handover.isAsleep, false))
        eventfd_write(handover.wakeUp, 1);
}

// Makes room when more requests end in a round than there is room for.
void closeEndedOrOldest() {
    int* const end = handover.connections + handover.count;
    int* kept = std::remove_if(handover.connections, end, [](int connection) {
        const bool isEnded = !mayReceiveMore(connection);
        if (isEnded)
            close(connection);
        return isEnded;
    });
    if (kept == end) {
        close(handover.connections[0]);
        kept = std::move(handover.connections + 1, end, handover.connections);
    }
    handover.count = static_cast<std::size_t>(kept - handover.connections);
}

} // namespace

void closeLingering(base::Descriptor connection) {
    assert(connection); // "a connected socket"
    shutdown(connection.get(), SHUT_WR);
    const base::MutexLock lock(handoverMutex);
    if (!handover.isWatched && !(handover.isWatched = startWatching()))
        return;
    if (handover.count == kMost)
        closeEndedOrOldest();
    handover.connections[handover.count++] = connection.release();
    wake();
}

void endLingering() {
    {
        const base::MutexLock lock(handoverMutex);
        if (!handover.isWatched)
            return;
        handover.isEnding = true;
        wake();
    }
    pthread_join(handover.thread, nullptr);
    const base::MutexLock lock(handoverMutex);
    while (handover.count > 0)
        close(handover.connections[--handover.count]);
    close(handover.wakeUp);
    handover.isWatched = handover.isEnding = false;
}
