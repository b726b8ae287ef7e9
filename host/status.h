// The lines that the daemon logs about itself: when it is ready, on SIGUSR2, and when it stops.
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

struct Readiness {
    const char* version;
    std::string socket; // that requests are accepted from
    int loops;
    const char* configuration; // path of the plug-in configuration
};

// Returns "ready version=1.0.0 socket=/run/fcgi_host.sock ..." without a line feed. Keep the keys
// and their order, too.
std::string readyLine(const Readiness& readiness);

struct Stop {
    const char* reason; // name of the signal, or "failure"
    int exitStatus;
    unsigned long requests; // since the start, those in flight included
    int inFlight;
};

// Returns "stopped reason=SIGTERM status=0 ..." without a line feed. Keep the keys and their order,
// too.
std::string stoppedLine(const Stop& stop);

#endif
