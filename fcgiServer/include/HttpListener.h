// The interface of a plug-in that sees every request before any servlet does.
//
// The plug-in library exports, for each listener, a creation function under exactly the name that
// the configuration file gives:
//
//     extern "C" HttpListener* createSignInListener() { return new SignInListener; }
//
// Each call returns a new object, null for failure.
#ifndef HTTP_LISTENER_H
#define HTTP_LISTENER_H

class HttpRequest;
class HttpResponse;

// Compiled plug-ins depend on the order of the operations.
//   Owner    nobody: a listener lives until the process ends and is never told that it ends.
//   Threads  onRequest() runs on every request thread at once.
class HttpListener {
public:
    // Called once at start-up, in configuration order, before any request.
    virtual void init() = 0;

    // True lets the request go on to the next listener and at last to its servlet. False ends it:
    // nobody else sees it, and the response goes out as this listener left it.
    virtual bool onRequest(HttpRequest* request, HttpResponse* response) = 0;

protected:
    ~HttpListener() = default;
};

#endif
