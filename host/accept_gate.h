// Stops accepting requests without losing one.
//
// The listening socket may be shared with a supervisor and with other processes, which go on
// accepting from it, so it cannot simply be shut down; and a thread that waits in accept(2)
// notices neither a flag nor that its descriptor was closed. Hence two steps: close() removes the
// socket from file descriptor 0, wake() makes the waiting thread call accept(2) again.
#ifndef ACCEPT_GATE_H
#define ACCEPT_GATE_H

#include "base/descriptor.h"
#include "listen_socket.h"
#include "request_loops.h"

#include <optional>
#include <string>
#include <utility>

class AcceptGate {
public:
    // Puts `bound` at file descriptor 0; without a value, takes the shared socket that is there
    // already. Returns nothing on failure; `error` then says why.
    static std::optional<AcceptGate> open(std::optional<BoundSocket> bound, std::string& error);

    // Makes accept(2) fail from now on, except on a thread that is waiting in it right now.
    // Connections pending on a socket that this process opened are accepted first, for up to a
    // second; those of a shared socket are left to the next process. Call once.
    void close();

    // Wakes the thread that waits for a connection, if there is one; threads that serve are not
    // disturbed. Call after close(), and again until the loops have ended: one call may not be
    // enough.
    void wake(const RequestLoops& loops);

    // Returns whether a client has connected and is not accepted yet.
    bool hasPendingConnection() const;

private:
    AcceptGate(base::Descriptor listener, std::optional<BoundSocket> bound)
        : m_listener(std::move(listener)), m_bound(std::move(bound)) {}

    bool connectToSelf() const;

    base::Descriptor m_listener; // stays open when file descriptor 0 is closed
    std::optional<BoundSocket> m_bound;
    bool m_isClosed = false;
};

#endif
