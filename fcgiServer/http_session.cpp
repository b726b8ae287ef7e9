#include "http_session.h"

#include "base/mutex_lock.h"
#include "web_debug.h"

#include <cstdint>
#include <cstdio>
#include <sys/times.h>

pthread_mutex_t session_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr int TIME_OFFSET = 300;
constexpr int kTicksPerSecond = 100;
constexpr std::size_t kIdSize = 64;

int secondsNow() {
    // Null: with a structure to fill, Linux would add up the processor time of all threads.
    return static_cast<int>(times(nullptr) / kTicksPerSecond);
}

// Seconds from `stamp` (which includes TIME_OFFSET) to `now` (which does not). A 32-bit clock_t
// wraps to its minimum every 497 days, first after 248 days or, since the kernel need not count
// from 0, after 49.7 (with HZ=250). So a difference below minus half its range means that it
// wrapped.
int secondsBetween(int stamp, int now) {
    constexpr int kClockRange = 42949673; // seconds in 2^32 ticks
    const int passed = (TIME_OFFSET - stamp) + now;
    const bool hasWrapped = sizeof(clock_t) == 4 && passed < -kClockRange / 2;
    return hasWrapped ? passed + kClockRange : passed;
}

unsigned int addressBits(const void* address) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(address));
}

// Access words that are shared without a lock. Their types are part of the binary interface, so
// they cannot be std::atomic.
template <class Word>
Word load(const Word& word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}
template <class Word>
void store(Word& word, Word value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

bool isEmpty(const char* name) {
    return name == nullptr || *name == '\0';
}

} // namespace

int sessionTime() {
    return secondsNow() + TIME_OFFSET;
}

HttpSessionImpl::HttpSessionImpl(const std::string& remoteAddr)
    : m_createTime(sessionTime()), m_lastAccessedTime(m_createTime), m_remoteAddr(remoteAddr) {
    char id[kIdSize] = {};
    std::snprintf(id, sizeof id, "%x%ld%x", addressBits(remoteAddr.data()),
                  static_cast<long>(m_createTime), addressBits(this));
    m_id = id;
}

// Here and not in the class, where link-time optimisation drops its symbols from the library.
HttpSessionImpl::~HttpSessionImpl() = default;

const std::string& HttpSessionImpl::getId() {
    return m_id;
}

bool HttpSessionImpl::setAttribute(const char* name, void* value) {
    if (value == nullptr || isEmpty(name))
        return false;
    const base::MutexLock lock(session_mutex);
    if (load(m_bValid))
        m_attributes.put(name, value);
    return true;
}

void* HttpSessionImpl::getAttribute(const char* name) {
    if (isEmpty(name))
        return nullptr;
    const base::MutexLock lock(session_mutex);
    if (!load(m_bValid))
        return nullptr;
    auto* entry = m_attributes.getAssoc(name);
    return entry != nullptr ? entry->value : nullptr;
}

void HttpSessionImpl::removeAttribute(const char* name) {
    if (isEmpty(name))
        return;
    const base::MutexLock lock(session_mutex);
    if (!load(m_bValid))
        return;
    if (auto* entry = m_attributes.getAssoc(name))
        m_attributes.removeAssoc(entry);
}

bool HttpSessionImpl::existAttribute(const char* name) {
    if (isEmpty(name))
        return false;
    const base::MutexLock lock(session_mutex);
    return load(m_bValid) && m_attributes.getAssoc(name) != nullptr;
}

void HttpSessionImpl::invalidate() {
    const base::MutexLock lock(session_mutex);
    store(m_bValid, false);
    m_attributes.clear();
    WebDebug::getInstance()->setUser(nullptr);
}

int HttpSessionImpl::getCreateTime() {
    return m_createTime;
}
int HttpSessionImpl::getLastAccessedTime() {
    return load(m_lastAccessedTime);
}
void HttpSessionImpl::setMaxInactiveInterval(int seconds) {
    store(m_maxInactiveInterval, seconds);
}
int HttpSessionImpl::getMaxInactiveInterval() {
    return load(m_maxInactiveInterval);
}

bool HttpSessionImpl::isValidate() {
    if (!load(m_bValid))
        return false;
    return load(m_maxInactiveInterval) > secondsBetween(load(m_lastAccessedTime), secondsNow());
}

bool HttpSessionImpl::isUsable() const {
    return load(m_bValid);
}

int HttpSessionImpl::idleSeconds(int now) const {
    return secondsBetween(load(m_lastAccessedTime), now - TIME_OFFSET);
}

void HttpSessionImpl::update() {
    store(m_lastAccessedTime, sessionTime());
}
