// Handles the signals with which an operator controls the running daemon.
#ifndef SIGNAL_COMMANDS_H
#define SIGNAL_COMMANDS_H

#include "fcgi_server.h"
#include "request_loops.h"

// Handles any signal except those that stop the daemon; 0 does nothing. The reply goes to the log.
void handleSignal(int signal, FCGIServer& server, const RequestLoops& loops);

#endif
