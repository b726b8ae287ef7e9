// Owns every session: creates them, finds the one of a request, and expires idle ones.
#ifndef SESSION_FACTORY_H
#define SESSION_FACTORY_H

#include "QKSTL/QKHashMap.h"

#include <memory>
#include <string>

class HttpRequest;
class HttpSessionImpl;

//   Threads   any. One table mutex, private to this module, guards the tables of all factories and
//             the sessions' busy flags; time stamps are atomic (see http_session.h). It is not
//             recursive. Lock order: the table mutex first, then session_mutex. Every operation
//             locks it unless its comment says otherwise.
//   Lifetime  checkSession() deletes sessions that are neither busy nor valid, sweepUnused() those
//             that are neither used nor valid, destory() all.
class SessionFactory {
public:
    SessionFactory();
    // Frees the table, but not the sessions: only destory() does that. Locks nothing.
    virtual ~SessionFactory();

    SessionFactory(const SessionFactory&) = delete;
    SessionFactory& operator=(const SessionFactory&) = delete;

    // Does nothing. Returns 0.
    int init();

    // Returns the number of sessions in the table, including expired ones that the sweep has not
    // yet deleted. Lock-free; callable at any time.
    int sessionNum();

    // Returns whether the id is in the table. Looks it up without the lock: call it only while no
    // session can be created or removed.
    bool existSession(std::string& id);

    // Limits the number of sessions of each factory in the process; 0, the default, means no limit.
    // A session that is created beyond it ends others as the sweep would, the one that has been
    // idle longest first, but none that a request is using; see session_limit.h.
    static void setMaxSessions(int most);

    // Makes each factory in the process record which sessions the requests in flight use, as
    // sweepUnused() needs it; off by default. Call before the first request.
    static void recordUses(bool record);

    // Creates a session, valid and busy, for a client at `remoteAddr`. It belongs to the factory.
    HttpSessionImpl* createSession(std::string& remoteAddr);

    // Returns the valid session of the request, or null. The request's id must be in the table, and
    // its client's address must be the one that the session was created for. Logs an expired
    // session and leaves it to the sweep. Locks nothing: the caller must hold the table mutex.
    HttpSessionImpl* findSession(HttpRequest* request);

    // Does the same, but locks the table mutex.
    HttpSessionImpl* getSession(HttpRequest* request);

    // Marks the session of a request that begins, if there is one, as busy, and restarts its idle
    // time.
    void onRequest(HttpRequest* request);

    // Marks the session of a request that ends, if it is still valid, as no longer busy.
    void onRequestFinished(HttpRequest* request);

    // Invalidates the session of a request that goes on, if there is one, and clears its busy mark,
    // so that the next sweep frees it: onRequestFinished() will not find it any more.
    void endSession(HttpRequest* request);

    // Removes the session from the table without deleting it. The caller must already hold a
    // pointer to it and now owns it. An unknown id does nothing. Looks it up without the lock, like
    // existSession().
    void removeSession(std::string& id);

    // Sweeps the table: restarts the idle time of busy sessions, invalidates and deletes idle ones
    // that have expired.
    void checkSession();

    // Calls checkSession(). The library never calls it: a host does, from its timer. If requests
    // are served on several threads, call sweepUnused() instead: the shorter of two requests of one
    // session clears the busy mark, so that this could delete the session under the longer one.
    void onTimer();

    // Sweeps the table like checkSession(), but looks at which requests use a session rather than
    // at its busy mark: a session that a request uses stays, and its idle time restarts; any other
    // goes when it has expired, even if a refused request left it marked busy or it was invalidated
    // while it was served. recordUses(true) must have been called before the first request.
    void sweepUnused();

    // Invalidates and deletes every session. No request may be in flight. Returns 0. (The spelling
    // of the name is part of the interface.)
    int destory();

private:
    void keepLimit();

    // Restarts the idle time of those sessions for which `isBusy(session)` is true; invalidates and
    // deletes the others that have expired. The caller must hold the table mutex.
    template <class Predicate>
    void sweep(Predicate isBusy);

    using SessionTable = QKHashMap<std::string, HttpSessionImpl*, INT_HASH<std::string>>;

    std::unique_ptr<SessionTable> m_sessions; // the table mutex
};

#endif
