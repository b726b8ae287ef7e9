// What the daemon tells about itself when it is asked.
#ifndef STATUS_H
#define STATUS_H

#include <chrono>
#include <string>

// Of this process, in KiB; 0 where the system does not tell.
struct ProcessMemory {
    long privateKib = 0;  // what nobody else uses and is written to
    long residentKib = 0; // what stands in memory, shared or not
};

ProcessMemory processMemory();

struct Status {
    std::chrono::seconds uptime{0};
    unsigned long requests = 0; // since the start, those under way included
    int busyLoops = 0;
    int loops = 0;
    int sessions = 0; // those that have expired and await the sweep included
    ProcessMemory memory;
};

// "status uptime_s=60 requests=12 busy=1 ..." without a line feed: a key for each figure, in an
// order that stays.
std::string statusLine(const Status& status);

#endif
