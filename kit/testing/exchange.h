// One request on its way through a plug-in, as the controller of the container leads it.
#ifndef KIT_TESTING_EXCHANGE_H
#define KIT_TESTING_EXCHANGE_H

#include <kit/testing/request.h>
#include <kit/testing/response.h>

#include <http_request.h>
#include <http_response.h>
#include <session_factory.h>

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

    // Called once, at the end: renders the template and reads what the client gets.
    Response finish() {
        m_response.flush();
        m_sessions.onRequestFinished(&m_request);
        return Response(m_fastCgi.out().text());
    }

private:
    MemoryRequest m_fastCgi;
    SessionFactory& m_sessions;
    HttpResponseImpl m_response;
    HttpRequestImpl m_request;
};

} // namespace kit::testing

#endif
