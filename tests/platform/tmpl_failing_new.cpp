#include "tmpl_failing_new.h"

#include <cstdlib>
#include <new>

namespace {

bool limited = false;
bool refused = false;
int allocationsLeft = 0;

} // namespace

MemoryFor::MemoryFor(int allocations) {
    limited = true;
    refused = false;
    allocationsLeft = allocations;
}

MemoryFor::~MemoryFor() {
    limited = false;
}

bool MemoryFor::ranOut() const {
    return refused;
}

void* operator new(std::size_t size) {
    refused = refused || (limited && allocationsLeft-- == 0);
    if (limited && refused)
        throw std::bad_alloc();
    if (void* memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
