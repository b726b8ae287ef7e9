#ifndef EVENT_LISTENER_H
#define EVENT_LISTENER_H

#include "HttpListener.h"
#include "phone.h"

namespace phone {

// Records the events that reach the phone and answers them with a short text. It only records:
// whose events the phone acts upon is for those to decide who act.
class EventListener final : public HttpListener {
public:
    // `phone` must outlive the listener.
    explicit EventListener(Phone& phone) : m_phone(phone) {}

    void init() override {}
    bool onRequest(HttpRequest* request, HttpResponse* response) override;

private:
    Phone& m_phone;
};

} // namespace phone

#endif
