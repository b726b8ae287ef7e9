#include "allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstddef>

// The C library's own functions, behind the names that this file replaces.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}

namespace {

pieces::Allocations total{};
long inUse = 0;
long peakInUse = 0;

long usableSize(void* memory) {
    return static_cast<long>(malloc_usable_size(memory)); // 0 for null
}

void* counted(void* memory, std::size_t size) {
    ++total.count;
    total.bytes += static_cast<long>(size);
    inUse += usableSize(memory);
    peakInUse = std::max(peakInUse, inUse);
    return memory;
}

} // namespace

pieces::Allocations pieces::allocationsSoFar() {
    return total;
}

pieces::AllocationCounter::~AllocationCounter() {
    using benchmark::Counter;
    // Read first: setting the counters allocates.
    const Allocations now = total;
    m_state.counters["allocations"] =
        Counter(static_cast<double>(now.count - m_before.count), Counter::kAvgIterations);
    m_state.counters["bytes"] =
        Counter(static_cast<double>(now.bytes - m_before.bytes), Counter::kAvgIterations);
}

void pieces::AllocationCounter::pause() {
    m_state.PauseTiming();
    m_paused = total;
}

void pieces::AllocationCounter::resume() {
    m_before.count += total.count - m_paused.count;
    m_before.bytes += total.bytes - m_paused.bytes;
    m_state.ResumeTiming();
}

pieces::PeakMemory::PeakMemory() : m_before(inUse) {
    peakInUse = inUse;
}

long pieces::PeakMemory::bytes() const {
    return peakInUse - m_before;
}

void* malloc(std::size_t size) {
    return counted(__libc_malloc(size), size);
}

void* calloc(std::size_t count, std::size_t size) {
    return counted(__libc_calloc(count, size), count * size);
}

void* realloc(void* memory, std::size_t size) {
    inUse -= usableSize(memory);
    return counted(__libc_realloc(memory, size), size);
}

void free(void* memory) {
    inUse -= usableSize(memory);
    __libc_free(memory);
}
