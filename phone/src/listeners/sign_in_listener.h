#ifndef SIGN_IN_LISTENER_H
#define SIGN_IN_LISTENER_H

#include "HttpListener.h"
#include "phone.h"

namespace phone {

// Sends those who are not signed in to the sign-in form, which brings them back to the page that
// they asked for. Let through: the form itself, the maintenance word, and events, which no servlet
// gets to see.
class SignInListener final : public HttpListener {
public:
    // `phone` must outlive the listener.
    explicit SignInListener(Phone& phone) : m_phone(phone) {}

    void init() override {}
    bool onRequest(HttpRequest* request, HttpResponse* response) override;

private:
    bool mayPass(HttpRequest& request) const;

    Phone& m_phone;
};

} // namespace phone

#endif
