// What the phone measured in the last hour.
#ifndef MODEL_HISTORY_H
#define MODEL_HISTORY_H

#include "model/meters.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace phone {

// What the meters show at one moment.
struct Reading {
    std::chrono::seconds time{}; // on a clock that does not go back
    Memory memory;
    Traffic traffic;
    std::uint64_t events = 0; // since the phone started
};

// One interval of the history.
struct Sample {
    std::uint32_t memoryUsed; // KiB, at its end
    std::uint32_t received;   // bytes per second
    std::uint32_t sent;
    std::uint32_t events;
};

// Thread-safe. Its size is fixed; nothing is written to disk.
class History {
public:
    static constexpr std::size_t kSamples = 60;
    static constexpr std::chrono::seconds kInterval{60};

    // Ends an interval with this reading and begins the next one. The first reading only begins
    // one. Counters that went back, as those of an interface that was removed, count as unchanged.
    void add(const Reading& reading);

    struct Part {
        std::uint64_t next = 0;   // the number of the sample after these
        std::uint64_t events = 0; // Reading::events at the end of the last sample
        std::vector<Sample> samples;
    };
    // Returns the samples from number `first` on that are kept, oldest first. Samples are numbered
    // from 0. For a number that is yet to come, as after a restart of the phone, returns all.
    Part since(std::uint64_t first) const;

private:
    mutable std::mutex m_lock;
    // Guarded by m_lock.
    std::array<Sample, kSamples> m_samples{};
    std::uint64_t m_count = 0; // ever taken; sample i is at i % kSamples
    Reading m_last;
    bool m_started = false;
};

static_assert(sizeof(History) <= 1200, "the history must stay small on a device");

} // namespace phone

#endif
