// The implementation of HttpSession: the state of one client across requests.
#ifndef HTTP_SESSION_IMPL_H
#define HTTP_SESSION_IMPL_H

#include "HttpSession.h"
#include "QKSTL/QKHashMap.h"

#include <pthread.h>
#include <string>

// Guards the attributes of all sessions. Not recursive. Lock order: the session factory's table
// mutex first, then this one.
extern pthread_mutex_t session_mutex;

// Returns the current time as the time stamps of sessions show it.
int sessionTime();

//   Owner     the session factory, which creates and deletes it.
//   Clock     times(2), at 100 ticks a second. Every stored time stamp is 300 seconds ahead of it,
//             which getCreateTime() and getLastAccessedTime() show.
//   Threads   any; each member says what protects it. "Atomic" members are single words, accessed
//             without a lock and only through the operations, which do so atomically.
// The order of the members is part of the binary interface.
class HttpSessionImpl : public HttpSession {
public:
    // Creates a valid and busy session for the client address `remoteAddr`. Its id consists of the
    // address of that text, the creation time and the address of the session, in memory.
    explicit HttpSessionImpl(const std::string& remoteAddr);

    HttpSessionImpl(const HttpSessionImpl&) = delete;
    HttpSessionImpl& operator=(const HttpSessionImpl&) = delete;

    const std::string& getId() override;
    bool setAttribute(const char* name, void* value) override;
    void* getAttribute(const char* name) override;
    void removeAttribute(const char* name) override;
    bool existAttribute(const char* name) override;
    void invalidate() override;
    int getCreateTime() override;
    int getLastAccessedTime() override;
    void setMaxInactiveInterval(int seconds) override;
    int getMaxInactiveInterval() override;

    // Deletes no attribute value and locks nothing: no other thread may be using the session.
    virtual ~HttpSessionImpl();

    // Returns false once invalidated, or when idle for at least getMaxInactiveInterval() seconds.
    // Locks nothing.
    bool isValidate();

    // Returns whether invalidate() has not been called. Locks nothing.
    bool isUsable() const;

    // Returns the seconds from the last request's beginning to `now`, a sessionTime(). Locks
    // nothing.
    int idleSeconds(int now) const;

    // Restarts the idle time, because a request of this session begins. Locks nothing.
    void update();

    std::string m_id;                                                  // fixed
    int m_createTime;                                                  // fixed
    int m_lastAccessedTime;                                            // atomic
    int m_maxInactiveInterval = 180;                                   // atomic; seconds
    bool m_bValid = true;                                              // atomic
    bool m_bInRequest = true;                                          // the table mutex
    std::string m_remoteAddr;                                          // fixed
    QKHashMap<std::string, void*, INT_HASH<std::string>> m_attributes; // session_mutex
};

#endif
