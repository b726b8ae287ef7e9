// The one object that a host program creates: the FastCGI front end of the service.
#ifndef FCGI_SERVER_H
#define FCGI_SERVER_H

#include <fcgiapp.h>

#include <memory>

class ServletController;

// Accepts requests on the listening socket at file descriptor 0.
//   Owner     of the controller, and through it of servlets, sessions and the plug-in library.
//   Threads   construct and destroy on one thread while no run() is executing; run() may execute on
//             any number of threads at once, the other operations on any thread.
//   Failure   a constructor that throws (no memory) releases everything that it had created.
// The size is part of the binary interface.
class FCGIServer {
public:
    // Initialises libfcgi, reads the plug-in configuration and creates the listeners. Ends the
    // process with exit(-1) if the plug-in library cannot be opened.
    FCGIServer();

    // Does the same with the plug-in configuration `configFile`, which must not be null: for tests,
    // and for hosts that try a plug-in out.
    explicit FCGIServer(const char* configFile);

    // Destroys the servlets, the listeners and the sessions, then closes the plug-in library. Waits
    // for connections that are still open, for about two seconds at most, and ends the thread that
    // closes them. Every run() must have returned.
    virtual ~FCGIServer();

    FCGIServer(const FCGIServer&) = delete;
    FCGIServer& operator=(const FCGIServer&) = delete;

    // Accepts and serves requests until accepting fails, then returns -1; it returns nothing else.
    // Threads that execute it accept one at a time and serve concurrently.
    int run();

    // Registers a function that every run() of the process calls with each request that it has
    // accepted, before it serves it and on the same thread; null, the initial value, for none. It
    // may write header lines, each with its line end, to the output of the request. Any thread, at
    // any time.
    static void setRequestHook(void (*hook)(FCGX_Request& request));

    // Writes a bare error page for `status` to the output of `request`, which must not be null: a
    // body for 404 and 500, header lines alone for any other status.
    void onError(FCGX_Request* request, int status);

    // Returns 0 while the service exists, else -1. It expires no sessions: for that a host calls
    // getController()->getSessionFactory()->onTimer() from its timer.
    int onTimer();

    // Returns the controller, which belongs to the server; never null.
    ServletController* getController();

private:
    std::unique_ptr<ServletController> controller;
};

#endif
