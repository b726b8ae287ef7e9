// Start-up and shut-down messages, which go to standard error and not to the log.
#ifndef FAILURE_H
#define FAILURE_H

#include <cstdio>
#include <string>

// Prints `message` on standard error. Returns `status`, for `return fail(EX_USAGE, ...)`.
inline int fail(int status, const std::string& message) {
    std::fprintf(stderr, "fcgi_host: %s\n", message.c_str());
    return status;
}

#endif
