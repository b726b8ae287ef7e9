// The state of one client across requests, as plug-ins see it.
#ifndef HTTP_SESSION_H
#define HTTP_SESSION_H

#include <string>

// Compiled plug-ins depend on the order of the operations.
//   Owner    the session factory. A pointer is good for the request it was obtained in; ask again
//            in the next one.
//   Threads  attribute operations and invalidate() may be called on any thread; they exclude one
//            another by the exported `session_mutex`, which must therefore not be held by the
//            caller.
class HttpSession {
public:
    // The id that the client sends back in its cookie JSESSIONID. Lives as long as the session.
    virtual const std::string& getId() = 0;

    // Stores `value` under `name`, replacing what was there. False, and nothing stored, for a null
    // value and a null or empty name; true otherwise, though an invalid session stores nothing.
    // The session never deletes what `value` points to, not when it is replaced or removed and not
    // when the session ends: it stays the caller's.
    virtual bool setAttribute(const char* name, void* value) = 0;

    // The pointer stored under `name`, or null.
    virtual void* getAttribute(const char* name) = 0;

    // Forgets `name`; a null, empty or unknown name does nothing.
    virtual void removeAttribute(const char* name) = 0;
    // Whether anything is stored under `name`.
    virtual bool existAttribute(const char* name) = 0;

    // Ends the session: all attributes are forgotten, and later ones are not stored. The client's
    // next request has no session. Called during a request of the session itself, it leaves the
    // emptied object to count as being served, so that its memory comes back at shut-down only; a
    // page that signs users out again and again calls setMaxInactiveInterval(1) instead.
    virtual void invalidate() = 0;

    // Seconds of the system's tick clock, times(2), plus 300; not a time of day.
    virtual int getCreateTime() = 0;
    virtual int getLastAccessedTime() = 0;

    // Idle seconds after which the session expires, 180 at first. Zero or less: at once.
    virtual void setMaxInactiveInterval(int seconds) = 0;
    virtual int getMaxInactiveInterval() = 0;

protected:
    ~HttpSession() = default;
};

#endif
