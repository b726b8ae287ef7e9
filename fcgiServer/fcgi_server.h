// The one object that a host program makes: the FastCGI front of the service.
#ifndef FCGI_SERVER_H
#define FCGI_SERVER_H

#include <fcgiapp.h>

class ServletController;

// Requests arrive on the listening socket that is file descriptor 0.
class FCGIServer {
public:
    // Initialises the FastCGI kit, reads the plug-in configuration and creates the listeners. The
    // process ends with exit(-1) when the plug-in library cannot be opened.
    FCGIServer();

    // The same with the plug-in configuration `configFile`, which must not be null: for tests, and
    // for hosts that try a plug-in out.
    explicit FCGIServer(const char* configFile);

    // Ends the servlets, the listeners and the sessions, and closes the plug-in library. Every
    // run() must have returned.
    virtual ~FCGIServer();

    FCGIServer(const FCGIServer&) = delete;
    FCGIServer& operator=(const FCGIServer&) = delete;

    // Accepts and serves requests until accepting fails; always gives -1 then. Any number of
    // threads may run it at once: they take turns in accepting and serve at the same time.
    int run();

    // Answers `request` with a bare page for `status`: with a body for 404 and 500, with headers
    // alone for any other.
    void onError(FCGX_Request* request, int status);

    // For the host's timer: 0 while the service stands, else -1. It expires no sessions; for that
    // the host calls getController()->getSessionFactory()->onTimer(). Any thread.
    int onTimer();

    // Belongs to the server; null only after destruction.
    ServletController* getController();

private:
    ServletController* controller;
};

// What the threads in FCGIServer::run() do, whatever servers the process has: for a host that tells
// about it. Any thread may ask, at any time; nobody waits for anybody.

// The request that a thread serves.
struct CurrentRequest {
    int thread;           // from 1, in the order in which the threads served their first requests
    unsigned long number; // from 1, in the order in which requests were accepted; 0: it serves none
};

// Of the calling thread.
CurrentRequest currentRequest();

// What all threads do.
struct LoopActivity {
    unsigned long requests; // that were accepted since the process began, those under way included
    int busy;               // threads that serve one right now
};

// Of all servers of the process together.
LoopActivity loopActivity();

#endif
