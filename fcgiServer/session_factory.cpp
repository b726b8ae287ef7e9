#include "session_factory.h"

#include "HttpRequest.h"
#include "app_log.h"
#include "base/mutex_lock.h"
#include "http_session.h"
#include "log_module.h"
#include "session_limit.h"
#include "session_uses.h"

#include <cassert>
#include <memory>
#include <pthread.h>
#include <string_view>
#include <syslog.h>

namespace {

pthread_mutex_t tableMutex = PTHREAD_MUTEX_INITIALIZER;

// The table mutex guards them.
SessionLimit limit;
SessionUses uses;
bool recordsAllUses = false;

// Returns whether uses are recorded. The caller must hold the table mutex.
bool usesAreRecorded() {
    return recordsAllUses || limit.isSet();
}

// Invalidates a session, then deletes it.
void end(HttpSessionImpl* session) {
    const std::unique_ptr<HttpSessionImpl> owner(session);
    owner->invalidate();
}

} // namespace

SessionFactory::SessionFactory() : m_sessions(std::make_unique<SessionTable>()) {}

SessionFactory::~SessionFactory() = default;

int SessionFactory::init() {
    return 0;
}

int SessionFactory::sessionNum() {
    return __atomic_load_n(&m_sessions->m_nCount, __ATOMIC_RELAXED);
}

bool SessionFactory::existSession(std::string& id) {
    const bool found = m_sessions->getAssoc(id) != nullptr;
    const base::MutexLock lock(tableMutex);
    return found;
}

void SessionFactory::setMaxSessions(int most) {
    const base::MutexLock lock(tableMutex);
    limit.set(most);
    uses.reserve();
}

void SessionFactory::recordUses(bool record) {
    const base::MutexLock lock(tableMutex);
    recordsAllUses = record;
    uses.reserve();
}

HttpSessionImpl* SessionFactory::createSession(std::string& remoteAddr) {
    const base::MutexLock lock(tableMutex);
    auto session = std::make_unique<HttpSessionImpl>(remoteAddr);
    if (usesAreRecorded())
        uses.add(session.get());
    m_sessions->put(session->getId(), session.get());
    HttpSessionImpl* created = session.release();
    if (limit.isSet())
        keepLimit();
    return created;
}

// Ends sessions until the limit is kept, or every session is used by a request. The caller must
// hold the table mutex.
void SessionFactory::keepLimit() {
    limit.deleteEnded();
    const int now = sessionTime();
    while (limit.isExceededBy(m_sessions->m_nCount)) {
        SessionTable::TAssoc* chosen = nullptr;
        for (auto* entry = m_sessions->firstAssoc(); entry != nullptr;
             entry = m_sessions->nextAssoc(entry)) {
            HttpSessionImpl* other = chosen != nullptr ? chosen->value : nullptr;
            if (entry->value != nullptr && !uses.contain(*entry->value) &&
                SessionLimit::shouldEnd(*entry->value, other, now))
                chosen = entry;
        }
        if (chosen == nullptr)
            return;
        limit.end(std::unique_ptr<HttpSessionImpl>(chosen->value));
        m_sessions->removeAssoc(chosen);
    }
}

HttpSessionImpl* SessionFactory::findSession(HttpRequest* request) {
    const char* id = request->getSessionId();
    const char* address = request->getRemoteAddr();
    if (id == nullptr || address == nullptr)
        return nullptr;
    auto* entry = m_sessions->getAssoc(std::string_view(id));
    if (entry == nullptr || entry->value == nullptr)
        return nullptr;
    HttpSessionImpl* session = entry->value;
    if (std::string_view(session->m_remoteAddr) != address)
        return nullptr;
    if (session->isValidate())
        return session;
    app_log(kLogModule, LOG_INFO, "such session have invalidate,will to create a new session\n");
    return nullptr;
}

HttpSessionImpl* SessionFactory::getSession(HttpRequest* request) {
    const base::MutexLock lock(tableMutex);
    HttpSessionImpl* session = findSession(request);
    if (session != nullptr && usesAreRecorded())
        uses.add(session);
    return session;
}

void SessionFactory::onRequest(HttpRequest* request) {
    const base::MutexLock lock(tableMutex);
    if (usesAreRecorded())
        uses.endRequest();
    if (HttpSessionImpl* session = findSession(request)) {
        session->m_bInRequest = true;
        session->update();
        if (usesAreRecorded())
            uses.add(session);
    }
}

void SessionFactory::onRequestFinished(HttpRequest* request) {
    const base::MutexLock lock(tableMutex);
    if (HttpSessionImpl* session = findSession(request))
        session->m_bInRequest = false;
    if (usesAreRecorded())
        uses.endRequest();
}

void SessionFactory::endSession(HttpRequest* request) {
    const base::MutexLock lock(tableMutex);
    if (HttpSessionImpl* session = findSession(request)) {
        session->invalidate();
        session->m_bInRequest = false;
    }
}

void SessionFactory::removeSession(std::string& id) {
    auto* entry = m_sessions->getAssoc(id);
    const base::MutexLock lock(tableMutex);
    if (entry != nullptr)
        m_sessions->removeAssoc(entry);
}

template <class Predicate>
void SessionFactory::sweep(Predicate isBusy) {
    limit.deleteEnded();
    auto* entry = m_sessions->firstAssoc();
    while (entry != nullptr) {
        HttpSessionImpl* session = entry->value;
        if (isBusy(*session)) {
            session->update();
            entry = m_sessions->nextAssoc(entry);
        } else if (!session->isValidate()) {
            end(session);
            entry = m_sessions->removeAssoc(entry);
        } else {
            entry = m_sessions->nextAssoc(entry);
        }
    }
}

void SessionFactory::checkSession() {
    const base::MutexLock lock(tableMutex);
    sweep([](const HttpSessionImpl& session) { return session.m_bInRequest; });
}

void SessionFactory::onTimer() {
    checkSession();
}

void SessionFactory::sweepUnused() {
    const base::MutexLock lock(tableMutex);
    assert(usesAreRecorded()); // recordUses(true) must have been called
    sweep([](const HttpSessionImpl& session) { return uses.contain(session); });
}

int SessionFactory::destory() {
    const base::MutexLock lock(tableMutex);
    for (auto* entry = m_sessions->firstAssoc(); entry != nullptr;
         entry = m_sessions->nextAssoc(entry)) {
        if (entry->value != nullptr)
            end(entry->value);
    }
    m_sessions->clear();
    limit.clear();
    uses.clear();
    return 0;
}
