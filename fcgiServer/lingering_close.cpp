#include "lingering_close.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cassert>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLingerTimeout{2}; // libfcgi's default

// Chunked requests have no CONTENT_LENGTH; front servers pass HTTP_TRANSFER_ENCODING instead.
bool announcesBody(const FCGX_Request& request) {
    const char* length = FCGX_GetParam("CONTENT_LENGTH", request.envp);
    const bool empty = length == nullptr || *length == '\0' || std::strcmp(length, "0") == 0;
    return !empty || FCGX_GetParam("HTTP_TRANSFER_ENCODING", request.envp) != nullptr;
}

void lingerUntilClosed(int connection) {
    // Half-close: some front servers close only after they have seen the end of the response.
    shutdown(connection, SHUT_WR);
    const auto deadline = Clock::now() + kLingerTimeout;
    pollfd polled[] = {{connection, POLLIN, 0}};
    char discarded[4096];
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 ||
            poll(polled, std::size(polled), static_cast<int>(left.count())) <= 0 ||
            read(connection, discarded, sizeof discarded) <= 0)
            return;
    }
}

} // namespace

void sendThenLinger(FCGX_Request& request) {
    assert(request.ipcFd >= 0 && !request.keepConnection && FCGX_HasSeenEOF(request.in) == 0);
    FCGX_FClose(request.err);
    FCGX_FClose(request.out);
    // A request without a body still ends in an empty FCGI_STDIN record. It has arrived or is about
    // to, so reading one byte does not block for long.
    if (announcesBody(request) || FCGX_GetChar(request.in) != EOF)
        lingerUntilClosed(request.ipcFd);
}
