// The interface of a page plug-in.
//
// The plug-in library exports, for each servlet, a creation function under exactly the name that
// the configuration file contains:
//
//     extern "C" HttpServlet* createStatusPage() { return new StatusPage; }
//
// Each call returns a new object, or null on failure.
#ifndef HTTP_SERVLET_H
#define HTTP_SERVLET_H

class HttpRequest;
class HttpResponse;

// Compiled plug-ins depend on the order of the operations.
//   Owner    the container, once created. It never runs a destructor: at shut-down it calls
//            destroy() and frees the storage with the global operator delete. Allocate with the
//            global operator new, and release in destroy() everything that the object holds.
//   Threads  service() runs on every request thread at once; init() runs once, before the first
//            service().
class HttpServlet {
public:
    // Called once, right after creation. No other servlet can be created or found meanwhile, so
    // every other request waits: return soon.
    virtual void init() = 0;

    // Serves one request whose parameter "p" is this servlet's id. Both objects live until this
    // operation returns; keep no pointer to them or to a text that they return.
    virtual void service(HttpRequest* request, HttpResponse* response) = 0;

    // Releases everything the object holds and leaves it usable. Called before the storage is
    // freed at shut-down; on the servlet "contacts-preview" also, on any request thread, whenever
    // a request names another servlet.
    virtual void destroy() = 0;

protected:
    ~HttpServlet() = default;
};

#endif
