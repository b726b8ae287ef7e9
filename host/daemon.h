// The daemon's life, from the listening socket to the end of the last request.
#ifndef DAEMON_H
#define DAEMON_H

#include "options.h"

// Serves requests until a stop signal arrives. Returns the exit status. Call once, before any
// thread is started.
int runDaemon(const Options& options);

#endif
