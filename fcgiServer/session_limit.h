// Decides which sessions SessionFactory ends when there are more than the host allows. Internal:
// not installed.
#ifndef SESSION_LIMIT_H
#define SESSION_LIMIT_H

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

    // Returns whether `session` should be ended rather than `other`, which may be null. No request
    // may be using either.
    // - An invalid one goes first, and so does one that is still marked busy, by a refused request.
    // - Otherwise the one goes that has been idle longest at `now`, a sessionTime().
    static bool shouldEnd(HttpSessionImpl& session, HttpSessionImpl* other, int now);

    // Invalidates the session and deletes it. If it was created in the current second, it is
    // deleted later: an id consists of a second and of the session's address in memory, so no other
    // session may get that address within that second.
    void end(std::unique_ptr<HttpSessionImpl> session);

    // Deletes the sessions that end() kept, unless it is still the second of their creation.
    void deleteEnded();

    // Deletes all sessions that end() kept.
    void clear();

private:
    int m_most = 0; // atomic
    std::vector<std::unique_ptr<HttpSessionImpl>> m_ended;
};

#endif
