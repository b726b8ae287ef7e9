// Takes the place of malloc(3) in the program, and so of what stands on it, operator new too, and
// counts what it gives, to the libraries of the program too. Of one thread.
#ifndef ALLOCATIONS_H
#define ALLOCATIONS_H

#include <benchmark/benchmark.h>

namespace pieces {

// What was asked for since the program began.
struct Allocations {
    long count;
    long bytes;
};
Allocations allocationsSoFar();

// Sets the counters "allocations" and "bytes" of a benchmark to what one iteration of it takes
// between construction and destruction, less what was made between pause() and resume().
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State& state)
        : m_state(state), m_before(allocationsSoFar()) {}
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    // The timing rests too.
    void pause();
    void resume();

private:
    benchmark::State& m_state;
    Allocations m_before;
    Allocations m_paused{};
};

// The most bytes that are in use at once from construction on, beyond those in use before. One at
// a time.
class PeakMemory {
public:
    PeakMemory();
    long bytes() const;

private:
    long m_before;
};

} // namespace pieces

#endif
