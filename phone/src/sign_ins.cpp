#include "sign_ins.h"

#include "secrets.h"

#include <algorithm>

namespace phone {

bool SignIns::start(const std::string& sessionId, const WebUser& user) {
    std::string token = randomToken();
    if (token.empty()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_lock);
    remove(sessionId);
    if (m_entries.size() == kMaxSignIns) {
        m_entries.pop_front();
    }
    m_entries.push_back({sessionId, {&user, std::move(token)}});
    return true;
}

std::optional<SignIn> SignIns::find(const std::string& sessionId) const {
    std::lock_guard<std::mutex> lock(m_lock);
    for (const Entry& entry : m_entries) {
        if (entry.sessionId == sessionId) {
            return entry.signIn;
        }
    }
    return std::nullopt;
}

void SignIns::end(const std::string& sessionId) {
    std::lock_guard<std::mutex> lock(m_lock);
    remove(sessionId);
}

void SignIns::remove(const std::string& sessionId) {
    m_entries.erase(
        std::remove_if(m_entries.begin(), m_entries.end(),
                       [&](const Entry& entry) { return entry.sessionId == sessionId; }),
        m_entries.end());
}

} // namespace phone
