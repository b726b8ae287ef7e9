#include "counted_memory.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr long kNever = -1;

std::atomic<long> liveCount{0};
std::atomic<long> madeCount{0};
std::atomic<std::size_t> newest{0};
std::atomic<long> successesLeft{kNever};

bool mustFail() {
    return successesLeft.load() != kNever && successesLeft-- == 0;
}

void* allocate(std::size_t size) noexcept {
    // A sanitizer ends the process over sizes like this instead of refusing them.
    if (size > PTRDIFF_MAX || mustFail())
        return nullptr;
    void* memory = std::malloc(size > 0 ? size : 1);
    if (memory == nullptr)
        return nullptr;
    ++liveCount;
    ++madeCount;
    newest = size;
    return memory;
}

void* allocateOrThrow(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr)
        --liveCount;
    std::free(memory);
}

} // namespace

long counted_memory::live() {
    return liveCount;
}
long counted_memory::made() {
    return madeCount;
}
std::size_t counted_memory::newestSize() {
    return newest;
}
void counted_memory::failAfter(long count) {
    successesLeft = count;
}
bool counted_memory::cancelFailure() {
    return successesLeft.exchange(kNever) != kNever;
}

void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
