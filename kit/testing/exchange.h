// One request and its response, set up for a plug-in as the container's controller does it.
#ifndef KIT_TESTING_EXCHANGE_H
#define KIT_TESTING_EXCHANGE_H

#include <kit/testing/request.h>
#include <kit/testing/response.h>

#include <http_request.h>
#include <http_response.h>
#include <session_factory.h>

#include <cassert>

namespace kit::testing {

class Exchange {
public:
    Exchange(const Request& request, SessionFactory& sessions)
        : m_fastCgi(request.inMemory()), m_sessions(sessions), m_response(m_fastCgi.get()),
          m_request(m_fastCgi.get(), &sessions, &m_response) {
        m_response.setHttpRequest(&m_request);
        m_sessions.onRequest(&m_request);
    }

    HttpRequest* request() { return &m_request; }
    HttpResponse* response() { return &m_response; }

    // Renders the template, ends the request and returns the response. Call once.
    Response finish() {
        assert(!m_finished && "call finish() once");
        m_finished = true;
        m_response.flush();
        m_sessions.onRequestFinished(&m_request);
        return Response(m_fastCgi.out().text());
    }

private:
    MemoryRequest m_fastCgi;
    SessionFactory& m_sessions;
    HttpResponseImpl m_response;
    HttpRequestImpl m_request;
    bool m_finished = false;
};

} // namespace kit::testing

#endif
