// The interface of a plug-in that sees every request before any servlet does.
//
// The plug-in library exports, for each listener, a creation function under exactly the name that
// the configuration file contains:
//
//     extern "C" HttpListener* createSignInListener() { return new SignInListener; }
//
// Each call returns a new object, or null on failure.
#ifndef HTTP_LISTENER_H
#define HTTP_LISTENER_H

class HttpRequest;
class HttpResponse;

// Compiled plug-ins depend on the order of the operations.
//   Owner    none: a listener lives until the process ends, and nothing notifies it of the end.
//   Threads  onRequest() runs on every request thread at once.
class HttpListener {
public:
    // Called once at start-up, in configuration order, before any request.
    virtual void init() = 0;

    // Returns true to let the request go on to the next listener and finally to its servlet, or
    // false to end it: no other listener and no servlet sees it, and the response is sent as this
    // listener left it. Keep no pointer to either object.
    virtual bool onRequest(HttpRequest* request, HttpResponse* response) = 0;

protected:
    ~HttpListener() = default;
};

// Returns whether the container that serves this thread's request has no servlet with this id in
// its configuration; `id` must not be null. A servlet that is configured may still fail to be
// created. Returns false for a thread that serves no request. For listeners that answer requests
// for unknown pages: the container answers them with status 200 and the text of its 404 page.
// Declare it weak to run in older containers too, which lack it.
bool isUnknownServlet(const char* id);

#endif
