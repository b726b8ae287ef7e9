// A plug-in library that uses the container's interfaces directly: three pages and a listener.
#include <HttpListener.h>
#include <HttpRequest.h>
#include <HttpResponse.h>
#include <HttpServlet.h>
#include <HttpSession.h>
#include <app_log.h>
#include <tmpl.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr char* kEnd = nullptr;

class HelloPage final : public HttpServlet {
public:
    void init() override {}
    void service(HttpRequest* request, HttpResponse* response) override {
        const char* name = request->getParameter("name");
        app_log(7, 6, "greeting");
        response->setHeader("Content-Type", "text/plain");
        response->print("Hello, %s!", name != nullptr ? name : "stranger");
    }
    void destroy() override {}
};

// Counts the visits of a session.
class CounterPage final : public HttpServlet {
public:
    void init() override {}
    void service(HttpRequest* request, HttpResponse* response) override {
        HttpSession* session = request->getSession(true);
        const auto visits = reinterpret_cast<std::intptr_t>(session->getAttribute("visits")) + 1;
        session->setAttribute("visits", reinterpret_cast<void*>(visits));
        response->print("%d", static_cast<int>(visits));
    }
    void destroy() override {}
};

class CardPage final : public HttpServlet {
public:
    void init() override {}
    void service(HttpRequest* request, HttpResponse* response) override {
        const char* title = request->getParameter("title");
        response->setTemplate(TEMPLATE,
                              TMPL_add_var(nullptr, "title", title != nullptr ? title : "", kEnd));
    }
    void destroy() override {}
};

// Ends every request with the parameter "closed".
class Gate final : public HttpListener {
public:
    void init() override { m_sign = new char[8]; }
    bool onRequest(HttpRequest* request, HttpResponse* response) override {
        if (request->getParameter("closed") == nullptr)
            return true;
        std::strcpy(m_sign, "closed");
        response->print("%s", m_sign);
        return false;
    }

private:
    char* m_sign = nullptr;
};

} // namespace

extern "C" {

HttpServlet* createHelloPage() {
    return new HelloPage;
}
HttpServlet* createCounterPage() {
    return new CounterPage;
}
HttpServlet* createCardPage() {
    return new CardPage;
}
HttpListener* createGate() {
    return new Gate;
}

} // extern "C"
