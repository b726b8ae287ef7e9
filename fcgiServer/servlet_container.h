// Keeps the servlets, one per id, and hands each request to the one that it names.
#ifndef SERVLET_CONTAINER_H
#define SERVLET_CONTAINER_H

#include "QKSTL/QKHashMap.h"

#include <mutex>
#include <string>
#include <string_view>

class HttpRequest;
class HttpResponse;
class HttpServlet;
class PluginLoader;

//   Lifetime  a servlet is created by the first request for it and lives until destory().
//   Threads   requests may come on any threads at once: a lock of the container's own guards the
//             table and the creation, so that each servlet is created once. It is not held while a
//             servlet serves or is told to destroy(). init(), destory() and the destructor run on
//             one thread, while no request is served.
class ServletContainer {
public:
    ServletContainer();
    virtual ~ServletContainer();

    ServletContainer(const ServletContainer&) = delete;
    ServletContainer& operator=(const ServletContainer&) = delete;

    // Stores the loader, which is not owned and may be null; creates nothing.
    void init(PluginLoader* loader);

    // Creates, initialises and registers the servlet with this id. Null, mostly with a log line,
    // when it cannot be had; nothing is remembered of a failure.
    HttpServlet* addServlet(const std::string& id);

    // The servlet with this id, created on first use; null if it cannot be had. `id` must not be
    // null.
    HttpServlet* getServlet(const char* id);

    // Calls the servlet that the parameter "p" names: 200, or 404 when there is none. The
    // parameter must be there. A request for any servlet but "contacts-preview" first tells that
    // one to destroy() what it holds.
    int onRequest(HttpRequest* request, HttpResponse* response);

    // Tells every servlet to destroy(), frees it, and leaves the container empty but usable. (The
    // name is the interface's.)
    void destory();

private:
    HttpServlet* createServlet(std::string_view id);

    using ServletTable = QKHashMap<std::string, HttpServlet*, INT_HASH<std::string>>;

    ServletTable* servlets;
    PluginLoader* loader;
    std::mutex creationLock;
};

#endif
