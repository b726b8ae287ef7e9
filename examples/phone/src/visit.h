// Who is going to a page on this thread.
#ifndef VISIT_H
#define VISIT_H

#include "kit/sign_in.h"

namespace phone {

// A servlet that is told to drop what it holds is not told by whom; this tells. Set for each
// request by the listener that knows, and read while the same thread serves the request. Null:
// nobody who is signed in, or a script that only looks after its page. To be compared, not used:
// who signs out meanwhile is gone.
inline thread_local const kit::SignIn* visitor = nullptr;

} // namespace phone

#endif
