// Replaces the system calls that create, change and close files, in the test program and in the
// libraries that it uses: counts them, lets one of them fail, or kills the process at one.
#ifndef DISK_CALLS_H
#define DISK_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace disk_calls {

using Calls = std::vector<std::string>;

// Returns the system calls of `act`, in order: "openat", "write", "fsync", "rename" and so on.
Calls of(const std::function<void()>& act);

// Does the same while the call with this number, counted from 1, fails with `error`; calls that
// remove a file are counted but do not fail. A file whose closing fails is closed nevertheless.
Calls withFailure(int number, int error, const std::function<void()>& act);
// Does the same while that call and all later ones fail.
Calls withFailuresFrom(int number, int error, const std::function<void()>& act);

// Runs `act` in a child process, which is killed before it makes the call with this number. Returns
// false if it makes no such call.
bool killedAt(int number, const std::function<void()>& act);

} // namespace disk_calls

#endif
