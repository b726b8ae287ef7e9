// Owns every live session: makes them, finds the one of a request, and expires idle ones.
#ifndef SESSION_FACTORY_H
#define SESSION_FACTORY_H

#include "QKSTL/QKHashMap.h"

#include <string>

class HttpRequest;
class HttpSessionImpl;

//   Threads   a table mutex, private to this module, guards the table and the sessions' busy flags
//             and time stamps; where session_mutex is taken too, the table mutex comes first. It
//             is not recursive. An operation takes it unless it says otherwise.
//   Lifetime  a session is deleted by the sweep once it is neither busy nor valid, and by
//             destory().
class SessionFactory {
public:
    SessionFactory();
    // Releases the table, not the sessions: destory() must have run. Takes no lock.
    virtual ~SessionFactory();

    SessionFactory(const SessionFactory&) = delete;
    SessionFactory& operator=(const SessionFactory&) = delete;

    // Does nothing; gives 0.
    int init();

    // The number of sessions in the table, expired ones that await the sweep included. No lock:
    // it may be asked for at any time.
    int sessionNum();

    // Whether the id is in the table. Looks it up without the lock: only for a host that knows
    // that no session is made or removed at the same time.
    bool existSession(std::string& id);

    // A new session, valid and busy, for a client at `remoteAddr`. Belongs to the factory.
    HttpSessionImpl* createSession(std::string& remoteAddr);

    // The valid session of the request, or null: its id must be in the table and its client's
    // address must be the one that the session was made for. An expired session is logged and left
    // to the sweep. The caller holds the table mutex.
    HttpSessionImpl* findSession(HttpRequest* request);

    // The same for callers that do not hold it.
    HttpSessionImpl* getSession(HttpRequest* request);

    // A request begins: its session, if it has one, is busy and no longer idle.
    void onRequest(HttpRequest* request);

    // A request ends: its session, if it is still valid, is busy no more.
    void onRequestFinished(HttpRequest* request);

    // Takes a session out of the table; the caller, who must know it, invalidates and deletes it.
    // An unknown id does nothing. Looks it up without the lock, as existSession().
    void removeSession(std::string& id);

    // The sweep: refreshes busy sessions, invalidates and deletes idle ones that have expired.
    void checkSession();

    // Runs the sweep. Nobody but the host calls it, on any thread.
    void onTimer();

    // Invalidates and deletes every session. No request may be under way. Gives 0. (The name is
    // the interface's.)
    int destory();

private:
    using SessionTable = QKHashMap<std::string, HttpSessionImpl*, INT_HASH<std::string>>;

    SessionTable* m_sessions;
};

#endif
