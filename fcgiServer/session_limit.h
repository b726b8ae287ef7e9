// Decides which sessions SessionFactory ends when there are more than the host allows.
#ifndef SESSION_LIMIT_H
#define SESSION_LIMIT_H

#include <pthread.h>

#include <memory>
#include <vector>

class HttpSessionImpl;

//   Threads   any; the caller of every operation but isSet() must hold the table mutex.
class SessionLimit {
public:
    // Sets the largest number of sessions; 0, the default, means no limit.
    void set(int most);
    // Returns whether there is a limit. Locks nothing.
    bool isSet() const;
    bool isExceededBy(int sessions) const;

    // Records that the calling thread's request may use the session, until endRequest().
    void recordUse(HttpSessionImpl* session);
    void endRequest();

    // Returns whether `session` may be ended, and rather than `other`, which may be null:
    // - A session that a request is using stays.
    // - An invalid one goes first, and so does one that is marked busy although no request uses it:
    //   a refused request leaves the mark set, and the sweep would then refresh it for ever.
    // - Otherwise the one goes that has been idle longest at `now`, a sessionTime().
    bool shouldEnd(HttpSessionImpl& session, HttpSessionImpl* other, int now) const;

    // Invalidates the session and deletes it. If it was created in the current second, it is
    // deleted later: an id consists of a second and of the session's address in memory, so no other
    // session may get that address within that second.
    void end(std::unique_ptr<HttpSessionImpl> session);

    // Deletes the sessions that end() kept, unless it is still the second of their creation.
    void deleteEnded();

    // Forgets all uses and deletes all sessions that end() kept.
    void clear();

private:
    struct Use {
        pthread_t thread;
        HttpSessionImpl* session;
    };

    bool isInUse(const HttpSessionImpl& session) const;

    int m_most = 0; // atomic
    std::vector<Use> m_uses;
    std::vector<std::unique_ptr<HttpSessionImpl>> m_ended;
};

#endif
