// The signals that the daemon handles. All threads block them and the main thread takes them with
// waitForSignal(), so no handler runs and no request is interrupted.
#ifndef HOST_SIGNALS_H
#define HOST_SIGNALS_H

#include <chrono>
#include <csignal>

// Logs a status line.
constexpr int kStatusSignal = SIGUSR2;
// Raise and lower the log's threshold by one level. Known at run time only: the C library keeps
// some real-time signals for itself.
inline const int kRaiseLogLevelSignal = SIGRTMIN + 1;
inline const int kLowerLogLevelSignal = SIGRTMIN + 2;

// Blocks the signals that the daemon handles, and ignores SIGPIPE. Call before the first thread is
// started and before FCGIServer is created: libfcgi installs handlers of its own, which stop
// accepting or drop requests in flight, where it finds the default ones.
void blockSignals();

// Unblocks the stop signals: from now on each ends the process at once.
void unblockStopSignals();

// Waits for a signal for up to `time`. Returns its number, or 0 if none arrived.
int waitForSignal(std::chrono::steady_clock::duration time);

// Returns whether `signal` is one of those that stop the daemon.
bool isStopSignal(int signal);

// Returns the name of a stop signal, such as "SIGTERM".
const char* stopSignalName(int signal);

#endif
