// The status line that the daemon logs on SIGUSR2.
#ifndef STATUS_H
#define STATUS_H

#include <chrono>
#include <string>

// Memory of this process; 0 where the system does not report it.
struct ProcessMemory {
    long privateKib = 0;  // private dirty pages
    long residentKib = 0; // all pages in memory, shared ones included
};

// Reads /proc/self/smaps_rollup.
ProcessMemory processMemory();

struct Status {
    std::chrono::seconds uptime{0};
    unsigned long requests = 0; // since the start, those in flight included
    int busyLoops = 0;
    int loops = 0;
    int sessions = 0; // expired ones that were not swept yet included
    ProcessMemory memory;
};

// Returns "status uptime_s=60 requests=12 busy=1 ..." without a line feed. Scripts read it: keep
// the keys and their order.
std::string statusLine(const Status& status);

#endif
