// Owns the servlets, one per id, and passes each request to the servlet that it names.
#ifndef SERVLET_CONTAINER_H
#define SERVLET_CONTAINER_H

#include "QKSTL/QKHashMap.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

class HttpRequest;
class HttpResponse;
class HttpServlet;
class PluginLoader;

//   Lifetime  a servlet is created by the first request for it and lives until destory().
//   Threads   requests may be served on any number of threads at once. creationLock guards the
//             table and the creation, so that each servlet is created once; it is not held during
//             a servlet's service() and destroy(). Call init(), destory() and the destructor on
//             one thread while no request is being served.
class ServletContainer {
public:
    ServletContainer();
    virtual ~ServletContainer();

    ServletContainer(const ServletContainer&) = delete;
    ServletContainer& operator=(const ServletContainer&) = delete;

    // Stores the loader, which is not owned, may be null, and must outlive the last request.
    // Creates nothing.
    void init(PluginLoader* loader);

    // Creates, initialises and registers the servlet with this id. Returns null if it cannot be
    // created (logged, except for an id that is not configured). Failures are not cached: the next
    // request tries again.
    HttpServlet* addServlet(const std::string& id);

    // Returns the servlet with this id, which it creates on first use; null if it cannot be
    // created. `id` must not be null.
    HttpServlet* getServlet(const char* id);

    // Calls the servlet that the parameter "p" names. Returns 200, or 404 (logged) if there is
    // none. The request must have that parameter. If it names any servlet but "contacts-preview",
    // calls destroy() of that one first.
    int onRequest(HttpRequest* request, HttpResponse* response);

    // Calls destroy() of every servlet and frees it; leaves the container empty but usable. (The
    // spelling of the name is part of the interface.)
    void destory();

private:
    HttpServlet* createServlet(std::string_view id);

    using ServletTable = QKHashMap<std::string, HttpServlet*, INT_HASH<std::string>>;

    std::unique_ptr<ServletTable> servlets; // creationLock
    PluginLoader* loader;                   // fixed after init()
    std::mutex creationLock;
};

#endif
