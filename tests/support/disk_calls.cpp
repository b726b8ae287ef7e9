#include "disk_calls.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Watch {
    disk_calls::Calls calls;
    int firstFailing = 0; // none
    int lastFailing = 0;
    int error = 0;
    int killing = 0; // none

    // Whether the call that comes next is to fail.
    bool fails(const char* call) {
        calls.emplace_back(call);
        const int number = static_cast<int>(calls.size());
        if (number == killing)
            std::raise(SIGKILL);
        errno = error;
        return number >= firstFailing && number <= lastFailing;
    }
};

Watch* watch = nullptr; // while something is watched

bool fails(const char* call) {
    return watch != nullptr && watch->fails(call);
}
void count(const char* call) {
    fails(call);
}

disk_calls::Calls watched(Watch details, const std::function<void()>& act) {
    watch = &details;
    act();
    watch = nullptr;
    return details.calls;
}

template <class... Arguments>
int call(long number, Arguments... arguments) {
    return static_cast<int>(syscall(number, arguments...));
}

// The third argument of open(2), where there is one.
mode_t modeOf(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

disk_calls::Calls disk_calls::of(const std::function<void()>& act) {
    return watched({}, act);
}

disk_calls::Calls disk_calls::withFailure(int number, int error, const std::function<void()>& act) {
    return watched({{}, number, number, error, 0}, act);
}

disk_calls::Calls disk_calls::withFailuresFrom(int number, int error,
                                               const std::function<void()>& act) {
    return watched({{}, number, INT_MAX, error, 0}, act);
}

bool disk_calls::killedAt(int number, const std::function<void()>& act) {
    const pid_t child = fork();
    if (child == 0) {
        watched({{}, 0, 0, 0, number}, act);
        _exit(EXIT_SUCCESS);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return fails("open") ? -1 : call(SYS_openat, AT_FDCWD, path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return fails("openat") ? -1 : call(SYS_openat, folder, path, flags, mode);
}

ssize_t write(int file, const void* data, size_t size) {
    return fails("write") ? -1 : syscall(SYS_write, file, data, size);
}

ssize_t pwrite(int file, const void* data, size_t size, off_t offset) {
    return fails("pwrite") ? -1 : syscall(SYS_pwrite64, file, data, size, offset);
}

int fsync(int file) {
    return fails("fsync") ? -1 : call(SYS_fsync, file);
}

int fdatasync(int file) {
    return fails("fdatasync") ? -1 : call(SYS_fdatasync, file);
}

int close(int file) {
    const bool failed = fails("close");
    const int error = errno;
    const int result = call(SYS_close, file);
    errno = failed ? error : errno;
    return failed ? -1 : result;
}

int rename(const char* from, const char* to) noexcept {
    return fails("rename") ? -1 : call(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0u);
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
    return fails("renameat") ? -1 : call(SYS_renameat2, fromFolder, from, toFolder, to, 0u);
}

int unlink(const char* path) noexcept {
    count("unlink");
    return call(SYS_unlinkat, AT_FDCWD, path, 0);
}

int unlinkat(int folder, const char* path, int flags) noexcept {
    count("unlinkat");
    return call(SYS_unlinkat, folder, path, flags);
}

} // extern "C"
