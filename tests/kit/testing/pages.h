// Helpers for the pages of the test kit's tests.
#ifndef PAGES_H
#define PAGES_H

#include <HttpListener.h>
#include <HttpRequest.h>
#include <HttpResponse.h>
#include <HttpServlet.h>

#include <functional>
#include <string>
#include <utility>

inline std::string parameter(HttpRequest* request, const char* name) {
    const char* value = request->getParameter(name);
    return value != nullptr ? value : "(none)";
}

// A page whose service() is the given function; it counts calls of init() and destroy().
class Page final : public HttpServlet {
public:
    using Service = std::function<void(HttpRequest*, HttpResponse*)>;
    explicit Page(Service service) : m_service(std::move(service)) {}

    void init() override { ++initialised; }
    void service(HttpRequest* request, HttpResponse* response) override {
        m_service(request, response);
    }
    void destroy() override { ++destroyed; }

    int initialised = 0;
    int destroyed = 0;

private:
    Service m_service;
};

#endif
