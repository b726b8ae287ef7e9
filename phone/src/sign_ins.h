// Who is signed in.
#ifndef SIGN_INS_H
#define SIGN_INS_H

#include "device_state.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace phone {

// One sign-in. The token stands in the address of every form of its pages: a request that changes
// something must bring it, so that another site's page cannot make a browser send one.
struct SignIn {
    const WebUser* user;
    std::string token;
};

// The sign-ins, by the id of their session. A sign-in counts only while its session lives, which
// the caller finds out by asking the request for its session. Any thread, at any time.
class SignIns {
public:
    // With one more the oldest is signed out. A phone has a handful of users; this bounds what
    // sessions that expired without signing out leave behind.
    static constexpr std::size_t kMaxSignIns = 64;

    // Signs `user`, which must outlive this object, in on the session. False when no token could
    // be made.
    bool start(const std::string& sessionId, const WebUser& user);

    std::optional<SignIn> find(const std::string& sessionId) const;

    // An unknown id does nothing.
    void end(const std::string& sessionId);

private:
    struct Entry {
        std::string sessionId;
        SignIn signIn;
    };
    void remove(const std::string& sessionId);

    mutable std::mutex m_lock;
    std::deque<Entry> m_entries; // the oldest first; guarded by m_lock
};

} // namespace phone

#endif
