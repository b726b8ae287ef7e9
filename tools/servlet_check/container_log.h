// Captures what the container's code, which is linked into this program, logs.
#ifndef CONTAINER_LOG_H
#define CONTAINER_LOG_H

#include <string>

// Returns the last record since the previous call, without its line feed, or an empty text. Not
// thread-safe.
std::string takeLastRecord();

#endif
