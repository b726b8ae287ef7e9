// What the container's code, which is part of this program, would write to the device's log.
#ifndef CONTAINER_LOG_H
#define CONTAINER_LOG_H

#include <string>

// The last record since the last call, without a line end; empty when there is none. One thread.
std::string takeLastRecord();

#endif
