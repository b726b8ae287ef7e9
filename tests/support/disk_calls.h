// Takes the place of the system's calls that make, change and close files, in the test program and
// in the libraries it uses: counts them, makes one of them fail, or ends the process at one.
#ifndef DISK_CALLS_H
#define DISK_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace disk_calls {

using Calls = std::vector<std::string>;

// What `act` asks of the system, in its order: "openat", "write", "fsync", "rename" and so on.
Calls of(const std::function<void()>& act);

// The same while the call of this number, counted from 1, fails with `error`; calls that remove
// a file do not fail, but count. A file whose closing fails is closed all the same.
Calls withFailure(int number, int error, const std::function<void()>& act);
// The same while it and all that follow fail.
Calls withFailuresFrom(int number, int error, const std::function<void()>& act);

// Runs `act` in a process of its own, which is killed before it makes the call of this number.
// False when it has made no such call.
bool killedAt(int number, const std::function<void()>& act);

} // namespace disk_calls

#endif
