// Serves requests in memory, with the container's own request, response and session objects and
// the device's own decoding and templates: one servlet, one listener, or the whole container.
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

//   Threads  serve() and sweep() may run on any threads at once, as the container calls plug-ins
//            and the host its timer; all else runs on one thread, while nothing is served.
//   Failure  serve() passes on what the plug-in throws, and throws as Response does.
class Runner {
public:
    Runner() = default;
    virtual ~Runner() = default;
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    // What a client would get for the request.
    virtual Response serve(const Request& request) = 0;

    // What the host's timer does: ends the sessions that have been idle for too long.
    void sweep();
    // How many sessions there are, with those that await the sweep.
    int sessionCount();

protected:
    // Where the sessions are.
    virtual SessionFactory& sessions() = 0;
};

// One servlet, whatever page the requests ask for. It lives as the container has it live: init()
// at first, destroy() at last.
class ServletRunner : public Runner {
public:
    // The servlet stays the caller's, and must outlive the runner.
    explicit ServletRunner(HttpServlet& servlet);
    // By the creation function that the plug-in exports. As in the container, the storage is given
    // back without a destructor. std::runtime_error when the function gives null.
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

// One listener, which stays the caller's and must outlive the runner; init() is called first.
// Whether it let a request pass is `passed` of the response, which is as it would be if the
// servlet behind it added nothing.
class ListenerRunner : public Runner {
public:
    // Calls init().
    explicit ListenerRunner(HttpListener& listener);
    ~ListenerRunner() override;

    Response serve(const Request& request) override;

protected:
    SessionFactory& sessions() override;

private:
    std::unique_ptr<SessionFactory> m_sessions;
    HttpListener& m_listener;
};

// The whole container, with the plug-in library that a servlet.xml names: screening, listeners,
// servlets and error pages, as behind a front server.
class Container : public Runner {
public:
    // std::runtime_error when the file cannot be read. A library that cannot be opened ends the
    // process, as it does on a device, after the log has said why on standard error.
    // Listeners and what they allocate in init() are never freed, by their contract; leak checkers
    // are told so.
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
