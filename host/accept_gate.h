// Ends the accepting of requests without losing one.
//
// The listening socket may be shared with a supervisor and with other processes, which go on
// accepting from it, so it cannot simply be shut down; and a thread that waits in accept(2)
// notices neither a flag nor a descriptor that is closed under it. Hence two steps: close() takes
// the socket away from file descriptor 0, wake() makes the waiting thread look again.
#ifndef ACCEPT_GATE_H
#define ACCEPT_GATE_H

#include "descriptor.h"
#include "listen_socket.h"
#include "request_loops.h"

#include <optional>
#include <string>

class AcceptGate {
public:
    // Puts `own` at file descriptor 0, or guards the socket that stands there already when it is
    // null. Nothing on failure; `error` then says why.
    static std::optional<AcceptGate> open(std::optional<OwnSocket> own, std::string& error);

    // From here on nobody accepts a connection any more, but for one thread that may be waiting
    // for one right now. Clients of a socket of our own that have got in line are accepted first,
    // for up to a second; those of a shared socket are left to the next process.
    void close();

    // After close(): wakes the thread that waits for a connection, if one does. One call need not
    // be enough; repeat it until the loops have ended. Threads that serve are not disturbed.
    void wake(const RequestLoops& loops);

private:
    AcceptGate(Descriptor listener, std::optional<OwnSocket> own)
        : m_listener(std::move(listener)), m_own(std::move(own)) {}

    bool somebodyInLine() const;
    bool connectOnce() const;

    Descriptor m_listener; // outlives the one at file descriptor 0
    std::optional<OwnSocket> m_own;
};

#endif
