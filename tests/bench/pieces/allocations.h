// Counts the allocations of the program and its libraries: replaces malloc(3), on which operator
// new stands. Not thread-safe.
#ifndef ALLOCATIONS_H
#define ALLOCATIONS_H

#include <benchmark/benchmark.h>

namespace pieces {

// The allocations since the program began.
struct Allocations {
    long count;
    long bytes;
};
Allocations allocationsSoFar();

// Sets the counters "allocations" and "bytes" of a benchmark to those of one iteration, as made
// between construction and destruction, without those between pause() and resume().
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State& state)
        : m_state(state), m_before(allocationsSoFar()) {}
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    // Pauses the timing, too.
    void pause();
    void resume();

private:
    benchmark::State& m_state;
    Allocations m_before;
    Allocations m_paused{};
};

// Measures how much the heap grows, at its peak, beyond its size at construction. Only one object
// may exist at a time.
class PeakMemory {
public:
    PeakMemory();
    long bytes() const;

private:
    long m_before;
};

} // namespace pieces

#endif
