// The state of one client across requests, as plug-ins see it.
#ifndef HTTP_SESSION_H
#define HTTP_SESSION_H

#include <string>

// Compiled plug-ins depend on the order of the operations.
//   Owner    the session factory. A pointer is valid until the request ends in which it was
//            obtained; call HttpRequest::getSession() again in the next one. The session may expire
//            or be invalidated meanwhile, but fcgi_host frees it only when no request uses it. (A
//            host that calls SessionFactory::onTimer() may free it earlier, if two requests of it
//            are served at once.)
//   Threads  any. Attribute operations and invalidate() lock the exported `session_mutex`, which is
//            not recursive: do not hold it when calling them.
class HttpSession {
public:
    // Returns the id, which the client sends back in its cookie JSESSIONID. The text lives as long
    // as the session.
    virtual const std::string& getId() = 0;

    // Stores `value` under `name`, replacing what was there. Returns false, and stores nothing, for
    // a null value and for a null or empty name; true otherwise, although an invalid session stores
    // nothing either. The session never deletes what `value` points to, neither when it is replaced
    // or removed nor when the session ends: it still belongs to the caller.
    virtual bool setAttribute(const char* name, void* value) = 0;

    // Returns the pointer stored under `name`, or null.
    virtual void* getAttribute(const char* name) = 0;

    // Removes `name`; a null, empty or unknown name does nothing.
    virtual void removeAttribute(const char* name) = 0;
    // Returns whether anything is stored under `name`.
    virtual bool existAttribute(const char* name) = 0;

    // Ends the session: removes all attributes, and stores no later ones. The client's next request
    // has no session. fcgi_host frees the emptied object soon after the last request that uses it.
    // (A host that calls SessionFactory::onTimer() frees it at shut-down only, if it is invalidated
    // or expires during a request of its own. A page that must not rely on its host signs users out
    // with setMaxInactiveInterval() and a few seconds more than the request takes. One that creates
    // another session at once calls endRequestSession(), see HttpRequest.h.)
    virtual void invalidate() = 0;

    // Return a time stamp. Seconds of the system's tick clock, times(2), plus 300; not a time of
    // day.
    virtual int getCreateTime() = 0;
    virtual int getLastAccessedTime() = 0;

    // Set and return the idle seconds after which the session expires: initially 180; zero or less
    // expires it at once.
    virtual void setMaxInactiveInterval(int seconds) = 0;
    virtual int getMaxInactiveInterval() = 0;

protected:
    ~HttpSession() = default;
};

#endif
