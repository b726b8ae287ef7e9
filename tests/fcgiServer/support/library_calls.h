// Replaces, in a test program, libfcgi, the device's log, the dynamic loader, times(2) and the
// locking of mutexes. Records each call, in one list with those of recorded_device.
#ifndef LIBRARY_CALLS_H
#define LIBRARY_CALLS_H

#include <pthread.h>
#include <string>
#include <vector>

namespace library_calls {

using Calls = std::vector<std::string>;

// Forgets all calls, functions, mutexes and requests.
void reset();

// Returns the calls since the last call of this function or reset(), in order.
Calls take();

// Records something else that happens in between, such as a call of a plug-in.
void note(const std::string& event);

// Makes dlsym(3) find `function` under this name. It finds nothing else.
void exportFunction(const std::string& name, void* function);

// Makes a later FCGX_Accept_r() return a request with these CGI variables, in the order of the
// calls. Without a request it fails.
void sendRequest(const std::vector<std::string>& environment);

// Returns what has been written to the current request's response.
const std::string& response();

// Names a mutex; only those with a name are recorded.
void name(const pthread_mutex_t* mutex, const std::string& name);
// Returns the mutex that was locked last, named or not.
const pthread_mutex_t* lastLocked();

} // namespace library_calls

#endif
