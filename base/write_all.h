// Writes and syncs files, and repeats calls that a signal interrupts.
#ifndef BASE_WRITE_ALL_H
#define BASE_WRITE_ALL_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace base {

// Writes all of `data` to the descriptor `file`. Returns false on failure, with the reason in
// errno; some of the data may have been written then.
inline bool writeAll(int file, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = ::write(file, data.data(), data.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Waits until the file or folder is on the disk. Returns false on failure, with the reason in
// errno.
inline bool syncToDisk(int file) {
    int result = ::fsync(file);
    while (result != 0 && errno == EINTR)
        result = ::fsync(file);
    return result == 0;
}

} // namespace base

#endif
