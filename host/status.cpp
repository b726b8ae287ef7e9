#include "status.h"

#include <fstream>

ProcessMemory processMemory() {
    ProcessMemory memory;
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string word;
    while (rollup >> word) {
        if (word == "Rss:")
            rollup >> memory.residentKib;
        else if (word == "Private_Dirty:")
            rollup >> memory.privateKib;
    }
    return memory;
}

std::string statusLine(const Status& status) {
    return "status uptime_s=" + std::to_string(status.uptime.count()) +
           " requests=" + std::to_string(status.requests) +
           " busy=" + std::to_string(status.busyLoops) + " loops=" + std::to_string(status.loops) +
           " sessions=" + std::to_string(status.sessions) +
           " private_kib=" + std::to_string(status.memory.privateKib) +
           " resident_kib=" + std::to_string(status.memory.residentKib);
}
