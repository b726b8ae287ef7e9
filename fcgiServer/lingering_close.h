// Lingering close: a connection stays open behind its response while one thread of the process, not
// a request loop, waits for the front server to close it. Internal: not installed.
#ifndef LINGERING_CLOSE_H
#define LINGERING_CLOSE_H

#include "base/descriptor.h"

// Sends the end of the response, and closes the connection once the front server has closed it, at
// the latest after two seconds; until then discards what the front server sends. Returns at once.
// Closing a connection on which something is still to come, such as an unread request body, makes
// some front servers discard the response.
//   Before    `connection` is a connected socket on which the whole response has been written.
//   Threads   any.
//   Limits    64 connections of the process; one more closes the oldest. The first call starts the
//             thread, which sleeps while there is no connection. If it cannot be created, the
//             connection is closed at once, and a response may be lost; the next call tries again.
void closeLingering(base::Descriptor connection);

// Waits until all these connections are closed, about two seconds at most, and ends the thread. The
// next closeLingering() starts it again.
//   Threads   one at a time.
void endLingering();

#endif
