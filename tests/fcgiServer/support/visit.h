// A request with everything that a servlet or listener uses, without a controller.
#ifndef VISIT_H
#define VISIT_H

#include "http_request.h"
#include "http_response.h"
#include "session_factory.h"
#include <kit/testing/request.h>

#include <string>

class Visit {
public:
    explicit Visit(const std::string& query)
        : m_fastCgi(kit::testing::get("/servlet?" + query).inMemory()), m_response(m_fastCgi.get()),
          m_request(m_fastCgi.get(), &m_sessions, &m_response) {
        m_response.setHttpRequest(&m_request);
    }

    HttpRequest* request() { return &m_request; }
    HttpResponse* response() { return &m_response; }
    std::string output() const { return m_fastCgi.out().text(); }

private:
    kit::testing::MemoryRequest m_fastCgi;
    SessionFactory m_sessions;
    HttpResponseImpl m_response;
    HttpRequestImpl m_request;
};

#endif
