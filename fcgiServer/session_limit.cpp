#include "session_limit.h"

#include "http_session.h"

#include <cassert>
#include <utility>

namespace {

bool goesFirst(HttpSessionImpl& session) {
    return session.m_bInRequest || !session.isUsable();
}

} // namespace

void SessionLimit::set(int most) {
    assert(most >= 0); // "the largest number of sessions; 0 ..."
    __atomic_store_n(&m_most, most, __ATOMIC_RELAXED);
}

bool SessionLimit::isSet() const {
    return __atomic_load_n(&m_most, __ATOMIC_RELAXED) != 0;
}

bool SessionLimit::isExceededBy(int sessions) const {
    return isSet() && sessions > m_most;
}

bool SessionLimit::shouldEnd(HttpSessionImpl& session, HttpSessionImpl* other, int now) {
    if (other == nullptr)
        return true;
    if (goesFirst(session) != goesFirst(*other))
        return goesFirst(session);
    return session.idleSeconds(now) > other->idleSeconds(now);
}

void SessionLimit::end(std::unique_ptr<HttpSessionImpl> session) {
    session->invalidate();
    if (session->m_createTime == sessionTime())
        m_ended.push_back(std::move(session));
}

void SessionLimit::deleteEnded() {
    // The last one is the youngest.
    if (!m_ended.empty() && m_ended.back()->m_createTime != sessionTime())
        m_ended.clear();
}

void SessionLimit::clear() {
    m_ended.clear();
}
