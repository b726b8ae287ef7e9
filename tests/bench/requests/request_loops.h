// The accept loops that the small libfcgi programs share.
#ifndef BENCH_REQUEST_LOOPS_H
#define BENCH_REQUEST_LOOPS_H

#include <fcgiapp.h>

using Serve = void (*)(FCGX_Request& request);

// Runs LOOPS threads, the first word of the command line or 1, that accept on file descriptor 0
// under a lock, call `serve` and finish the request. Returns after SIGTERM.
void serveRequests(int argc, char** argv, Serve serve);

#endif
