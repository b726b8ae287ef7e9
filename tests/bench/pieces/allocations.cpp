#include "allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstddef>

// What the C library calls its own, for those who stand before it.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}

namespace {

pieces::Allocations soFar{};
long inUse = 0;
long mostInUse = 0;

long usableSize(void* memory) {
    return static_cast<long>(malloc_usable_size(memory)); // 0 for null
}

void* taken(void* memory, std::size_t size) {
    ++soFar.count;
    soFar.bytes += static_cast<long>(size);
    inUse += usableSize(memory);
    mostInUse = std::max(mostInUse, inUse);
    return memory;
}

} // namespace

pieces::Allocations pieces::allocationsSoFar() {
    return soFar;
}

pieces::AllocationCounter::~AllocationCounter() {
    using benchmark::Counter;
    // Before the counters themselves take memory.
    const Allocations now = soFar;
    m_state.counters["allocations"] =
        Counter(static_cast<double>(now.count - m_before.count), Counter::kAvgIterations);
    m_state.counters["bytes"] =
        Counter(static_cast<double>(now.bytes - m_before.bytes), Counter::kAvgIterations);
}

void pieces::AllocationCounter::pause() {
    m_state.PauseTiming();
    m_paused = soFar;
}

void pieces::AllocationCounter::resume() {
    m_before.count += soFar.count - m_paused.count;
    m_before.bytes += soFar.bytes - m_paused.bytes;
    m_state.ResumeTiming();
}

pieces::PeakMemory::PeakMemory() : m_before(inUse) {
    mostInUse = inUse;
}

long pieces::PeakMemory::bytes() const {
    return mostInUse - m_before;
}

void* malloc(std::size_t size) {
    return taken(__libc_malloc(size), size);
}

void* calloc(std::size_t count, std::size_t size) {
    return taken(__libc_calloc(count, size), count * size);
}

void* realloc(void* memory, std::size_t size) {
    inUse -= usableSize(memory);
    return taken(__libc_realloc(memory, size), size);
}

void free(void* memory) {
    inUse -= usableSize(memory);
    __libc_free(memory);
}
