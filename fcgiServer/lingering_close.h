// Lingering close of a connection whose request body has not been read to its end. Internal: not
// installed.
#ifndef LINGERING_CLOSE_H
#define LINGERING_CLOSE_H

#include <fcgiapp.h>

// Sends the whole response, then waits until the front server closes the connection, for at most
// two seconds. Call it instead of closing while the front server may still be sending the body: it
// may discard a response whose connection is closed meanwhile, and a client that sends slowly
// would hold up both the response and this thread.
//   Before    the request is connected, its connection is not to be kept, and no end of its body
//             has been seen.
//   After     only FCGX_Finish_r() may be called; its streams are closed.
void sendThenLinger(FCGX_Request& request);

#endif
