// Owns the list of listeners and passes every request to them before any servlet sees it.
#ifndef LISTENER_CONTAINER_H
#define LISTENER_CONTAINER_H

#include <cstddef>
#include <list>
#include <memory>

class HttpListener;
class HttpRequest;
class HttpResponse;
class PluginLoader;

//   Lifetime  listeners are created by init() and never freed.
//   Threads   call init() and destory() on one thread while no request is being served; in between
//             onRequest() may run on any number of threads at once.
class ListenerContainer {
public:
    ListenerContainer();
    virtual ~ListenerContainer();

    ListenerContainer(const ListenerContainer&) = delete;
    ListenerContainer& operator=(const ListenerContainer&) = delete;

    // Creates and initialises one listener per configured creation function, in order. Returns 0,
    // or -1 (logged) at the first listener that cannot be created, or for a null loader; listeners
    // created before it stay registered. The loader is used only during the call.
    int init(PluginLoader* loader);

    // Returns the number of listeners.
    std::size_t count() const;

    // Passes the request to the listeners, in order. Returns 0 as soon as one stops it (logged), or
    // 1 if all let it through or there are none.
    int onRequest(HttpRequest* request, HttpResponse* response);

    // Empties the list without freeing or notifying the listeners. Returns 0. (The spelling of the
    // name is part of the interface.)
    int destory();

private:
    // Changes only in init() and destory().
    std::unique_ptr<std::list<HttpListener*>> listeners;
};

#endif
