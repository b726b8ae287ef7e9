#include "status.h"

#include <algorithm>
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

std::string readyLine(const Readiness& readiness) {
    return "ready version=" + std::string(readiness.version) + " socket=" + readiness.socket +
           " loops=" + std::to_string(readiness.loops) +
           " configuration=" + readiness.configuration;
}

std::string stoppedLine(const Stop& stop) {
    // The two counts are not read at the same instant.
    const auto unfinished = std::min(stop.requests, static_cast<unsigned long>(stop.inFlight));
    return "stopped reason=" + std::string(stop.reason) +
           " status=" + std::to_string(stop.exitStatus) +
           " finished=" + std::to_string(stop.requests - unfinished) +
           " unfinished=" + std::to_string(unfinished);
}
