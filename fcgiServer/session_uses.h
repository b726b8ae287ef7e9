// Records which sessions the requests in flight use. A session's busy mark does not show it: the
// shorter of two requests of one session clears the mark under the longer one, and a refused
// request leaves it set. Internal: not installed.
#ifndef SESSION_USES_H
#define SESSION_USES_H

#include <pthread.h>

#include <vector>

class HttpSessionImpl;

//   Threads   any; the caller of every operation must hold the table mutex.
class SessionUses {
public:
    // Reserves the memory that is needed where each of 64 threads uses few sessions at once.
    void reserve();

    // Records that the calling thread's request may use the session, until endRequest(). Throws
    // std::bad_alloc if the reserved memory does not suffice and there is no other.
    void add(HttpSessionImpl* session);

    // Forgets the uses of the calling thread's request. A refused request does not call this; the
    // next request of the thread then does.
    void endRequest();

    // Returns whether a request uses the session.
    bool contain(const HttpSessionImpl& session) const;

    // Forgets all uses, and frees their memory.
    void clear();

private:
    struct Use {
        pthread_t thread;
        HttpSessionImpl* session;
    };

    std::vector<Use> m_uses;
};

#endif
