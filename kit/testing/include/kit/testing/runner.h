// Serves requests in memory by one servlet, one listener or the whole container. The request,
// response and session objects are the container's own; decoding and templates are the device's.
//
//     HelloPage page;
//     ServletRunner hello(page);
//     EXPECT_EQ(hello.serve(get("/servlet?p=hello&name=you")).body, "Hello, you!\n");
#ifndef KIT_TESTING_RUNNER_H
#define KIT_TESTING_RUNNER_H

#include <kit/testing/request.h>
#include <kit/testing/response.h>

#include <memory>
#include <string>

class FCGIServer;
class HttpListener;
class HttpServlet;
class SessionFactory;

namespace kit::testing {

// Serves requests, as the container or a part of it.
//   Threads  serve() and sweep() may run on any threads at the same time, as on a device. Call
//            everything else on one thread, while nothing is being served.
//   Errors   serve() passes on what the plug-in throws, and throws what Response's constructor
//   does.
class Runner {
public:
    Runner() = default;
    virtual ~Runner() = default;
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    // Returns the response that a client would receive.
    virtual Response serve(const Request& request) = 0;

    // Ends the sessions that have been idle for too long, as the host's timer does.
    void sweep();
    // Returns the number of sessions, including expired ones that are not swept yet.
    int sessionCount();

protected:
    // Returns the owner of the sessions.
    virtual SessionFactory& sessions() = 0;
};

// Serves every request by one servlet, whatever page it asks for. Calls init() first and destroy()
// last, as the container does.
class ServletRunner : public Runner {
public:
    // The caller keeps the servlet, which must outlive the runner.
    explicit ServletRunner(HttpServlet& servlet);
    // Calls the creation function that the plug-in exports; `create` must not be null. Frees the
    // storage without running a destructor, as the container does. Throws std::runtime_error if the
    // function returns null.
    explicit ServletRunner(HttpServlet* (*create)());
    ~ServletRunner() override;

    Response serve(const Request& request) override;

protected:
    SessionFactory& sessions() override;

private:
    std::unique_ptr<SessionFactory> m_sessions;
    HttpServlet* m_servlet;
    bool m_created;
};

// Passes every request to one listener. The result is the response as the listener left it; its
// member `passed` shows whether the listener passed the request on.
class ListenerRunner : public Runner {
public:
    // Calls init(). The caller keeps the listener, which must outlive the runner.
    explicit ListenerRunner(HttpListener& listener);
    ~ListenerRunner() override;

    Response serve(const Request& request) override;

protected:
    SessionFactory& sessions() override;

private:
    std::unique_ptr<SessionFactory> m_sessions;
    HttpListener& m_listener;
};

// Runs the whole container with the plug-in library that a servlet.xml names: screening, listeners,
// servlets and error pages, as behind a front server.
class Container : public Runner {
public:
    // Throws std::runtime_error if the file cannot be read. If the library cannot be opened, the
    // process ends, as on a device, after writing the log to standard error. Listeners and what
    // they allocate in init() are never freed, by their contract; the leak sanitizer does not
    // report them.
    explicit Container(const std::string& configFile);
    ~Container() override;

    Response serve(const Request& request) override;

protected:
    SessionFactory& sessions() override;

private:
    std::unique_ptr<FCGIServer> m_server;
};

} // namespace kit::testing

#endif
