// Simulates a full disk for the daemon under test: with WIRE_DISK_ROOM=N in the environment no file
// accepts more than N bytes. Replaces write(2) in the program that it is linked into, and in the
// libraries of that program.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

// Standard error may be a file, too, and the log must not be affected.
bool isOnTheDisk(int fd) {
    struct stat status {};
    return fd > STDERR_FILENO && fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

extern "C" ssize_t write(int fd, const void* data, size_t size) {
    static const char* const limit = std::getenv("WIRE_DISK_ROOM");
    if (limit != nullptr && size > 0 && isOnTheDisk(fd)) {
        const long long room = std::atoll(limit) - lseek(fd, 0, SEEK_CUR);
        if (room <= 0) {
            errno = ENOSPC;
            return -1;
        }
        size = std::min(size, static_cast<size_t>(room));
    }
    return syscall(SYS_write, fd, data, size);
}
