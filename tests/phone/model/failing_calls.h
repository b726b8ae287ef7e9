// System calls that fail when a test says so; the test program is linked with --wrap for each.
#ifndef FAILING_CALLS_H
#define FAILING_CALLS_H

namespace failing_calls {

enum class Call { none, write, shortWrite, interruptedWrite, fsync, rename };

// From now on the call fails (shortWrite: takes one byte a call; interruptedWrite: every other call
// is interrupted), but on standard streams.
void fail(Call call);

} // namespace failing_calls

#endif
