// Keeps the listeners and lets them see every request before any servlet does.
#ifndef LISTENER_CONTAINER_H
#define LISTENER_CONTAINER_H

#include <list>

class HttpListener;
class HttpRequest;
class HttpResponse;
class PluginLoader;

//   Lifetime  listeners are created by init() and never freed, nor told that they are let go.
//   Threads   init() and destory() run on one thread while no request is served; in between
//             onRequest() may run on any threads at once.
class ListenerContainer {
public:
    ListenerContainer();
    virtual ~ListenerContainer();

    ListenerContainer(const ListenerContainer&) = delete;
    ListenerContainer& operator=(const ListenerContainer&) = delete;

    // Creates and initialises one listener per configured creation function, in order: 0, or -1
    // with a log line at the first that cannot be had, which leaves those before it. The loader
    // is only used during the call.
    int init(PluginLoader* loader);

    // Asks the listeners in order: 1 when all let the request through or there are none, 0 as soon
    // as one stops it.
    int onRequest(HttpRequest* request, HttpResponse* response);

    // Lets the listeners go; gives 0. (The name is the interface's.)
    int destory();

private:
    std::list<HttpListener*>* listeners;
};

#endif
