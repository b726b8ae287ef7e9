// The signed-in user of the request that this thread serves.
#ifndef VISIT_H
#define VISIT_H

#include "kit/sign_in.h"

namespace phone {

// Page::drop() has no request parameter, so SignInListener stores the user here for each request.
// Null if no user is signed in, or if the request comes from a script that only polls. Compare it
// only: the user may have signed out since.
inline thread_local const kit::SignIn* visitor = nullptr;

} // namespace phone

#endif
