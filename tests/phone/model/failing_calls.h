// Lets tests make system calls fail; the test program is linked with --wrap for each call.
#ifndef FAILING_CALLS_H
#define FAILING_CALLS_H

namespace failing_calls {

enum class Call { none, write, shortWrite, interruptedWrite, fsync, rename, crypt, argon2 };

// Makes this call fail from now on, except on standard streams (shortWrite: writes one byte per
// call; interruptedWrite: every other call is interrupted; crypt, argon2: as without memory).
void fail(Call call);

} // namespace failing_calls

#endif
