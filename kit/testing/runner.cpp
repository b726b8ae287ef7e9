#include <kit/testing/runner.h>

#include "exchange.h"

#include <HttpListener.h>
#include <HttpServlet.h>

#include <cassert>
#include <new>
#include <stdexcept>

namespace kit::testing {
namespace {

HttpServlet* created(HttpServlet* (*create)()) {
    assert(create && "`create` must not be null");
    if (HttpServlet* servlet = create())
        return servlet;
    throw std::runtime_error("the creation function returned no servlet");
}

} // namespace

void Runner::sweep() {
    sessions().onTimer();
}

int Runner::sessionCount() {
    return sessions().sessionNum();
}

ServletRunner::ServletRunner(HttpServlet& servlet)
    : m_sessions(std::make_unique<SessionFactory>()), m_servlet(&servlet), m_created(false) {
    m_servlet->init();
}

ServletRunner::ServletRunner(HttpServlet* (*create)()) : ServletRunner(*created(create)) {
    m_created = true;
}

ServletRunner::~ServletRunner() {
    m_servlet->destroy();
    if (m_created)
        ::operator delete(m_servlet);
    m_sessions->destory();
}

Response ServletRunner::serve(const Request& request) {
    Exchange exchange(request, *m_sessions);
    m_servlet->service(exchange.request(), exchange.response());
    return exchange.finish();
}

SessionFactory& ServletRunner::sessions() {
    return *m_sessions;
}

ListenerRunner::ListenerRunner(HttpListener& listener)
    : m_sessions(std::make_unique<SessionFactory>()), m_listener(listener) {
    m_listener.init();
}

ListenerRunner::~ListenerRunner() {
    m_sessions->destory();
}

Response ListenerRunner::serve(const Request& request) {
    Exchange exchange(request, *m_sessions);
    const bool passed = m_listener.onRequest(exchange.request(), exchange.response());
    Response response = exchange.finish();
    response.passed = passed;
    return response;
}

SessionFactory& ListenerRunner::sessions() {
    return *m_sessions;
}

} // namespace kit::testing
