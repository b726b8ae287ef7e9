// A session: the state of one client across requests.
#ifndef HTTP_SESSION_IMPL_H
#define HTTP_SESSION_IMPL_H

#include "HttpSession.h"
#include "QKSTL/QKHashMap.h"

#include <pthread.h>
#include <string>

// Guards the attributes of all sessions. Not recursive. Taken after the session factory's own
// table mutex where both are held.
extern pthread_mutex_t session_mutex;

// Made and deleted by the session factory.
//   Clock     times(2) with 100 ticks a second; every stored time stamp is 300 seconds ahead of
//             it, which getCreateTime() and getLastAccessedTime() show.
//   Threads   attributes: session_mutex. m_bInRequest: the factory's table mutex. The time of the
//             last access, the interval and the validity are single words that anybody reads and
//             writes without a lock, through the operations, which do so atomically; the others
//             never change.
// The members are in this order for those who were compiled against them.
class HttpSessionImpl : public HttpSession {
public:
    // A valid session that is being served, bound to the client address `remoteAddr`. Its id is
    // made of the address of that text, the creation time and the address of the session.
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

    // Deletes no attribute value and takes no lock.
    virtual ~HttpSessionImpl() = default;

    // False once invalidated, and from the second on in which the session has been idle for its
    // maximum inactive interval. Takes no lock.
    bool isValidate();

    // A request of this session begins: it is idle since now. Takes no lock.
    void update();

    std::string m_id;
    int m_createTime;
    int m_lastAccessedTime;
    int m_maxInactiveInterval = 180;
    bool m_bValid = true;
    bool m_bInRequest = true;
    std::string m_remoteAddr;
    QKHashMap<std::string, void*, INT_HASH<std::string>> m_attributes;
};

#endif
