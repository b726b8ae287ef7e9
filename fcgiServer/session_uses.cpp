#include "session_uses.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t kExpectedUses = 256;

} // namespace

void SessionUses::reserve() {
    m_uses.reserve(kExpectedUses);
}

void SessionUses::add(HttpSessionImpl* session) {
    const auto isKnown = [session](const Use& use) {
        return use.session == session && pthread_equal(use.thread, pthread_self());
    };
    if (std::none_of(m_uses.begin(), m_uses.end(), isKnown))
        m_uses.push_back({pthread_self(), session});
}

void SessionUses::endRequest() {
    const auto isOwn = [](const Use& use) { return pthread_equal(use.thread, pthread_self()); };
    m_uses.erase(std::remove_if(m_uses.begin(), m_uses.end(), isOwn), m_uses.end());
}

bool SessionUses::contain(const HttpSessionImpl& session) const {
    return std::any_of(m_uses.begin(), m_uses.end(),
                       [&session](const Use& use) { return use.session == &session; });
}

void SessionUses::clear() {
    m_uses.clear();
    m_uses.shrink_to_fit();
}
