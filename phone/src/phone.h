// What the pages and the listeners share.
#ifndef PHONE_H
#define PHONE_H

#include "device_state.h"
#include "event_log.h"
#include "sign_ins.h"

class HttpRequest;

namespace phone {

// Any thread may use the parts; they outlive every page, listener and session.
struct Phone {
    DeviceState device;
    SignIns signIns;
    EventLog events;

    // Who sends the request, if it is somebody signed in.
    std::optional<SignIn> signInOf(HttpRequest& request) const;
};

} // namespace phone

#endif
