#include "support/freed_storage.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kCapacity = 4096;
thread_local bool recording = false;
FreedStorage kept[kCapacity];
std::size_t count = 0;

void record(const void* address, std::size_t size) {
    if (recording && count < kCapacity)
        kept[count++] = {address, size};
}

void release(void* address, std::size_t size) {
    if (address != nullptr)
        record(address, size);
    std::free(address);
}

} // namespace

void* operator new(std::size_t size) {
    if (void* storage = std::malloc(size != 0 ? size : 1))
        return storage;
    throw std::bad_alloc();
}
void operator delete(void* address) noexcept {
    release(address, 0);
}
void operator delete(void* address, std::size_t size) noexcept {
    release(address, size);
}

// A sanitizer has array forms of its own.
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete[](void* address) noexcept {
    release(address, 0);
}
void operator delete[](void* address, std::size_t size) noexcept {
    release(address, size);
}

void freed_storage::start() {
    count = 0;
    recording = true;
}

void freed_storage::mark() {
    record(nullptr, 0);
}

std::vector<FreedStorage> freed_storage::stop() {
    recording = false;
    return {kept, kept + count};
}

std::size_t freed_storage::indexOf(const std::vector<FreedStorage>& freed, const void* address) {
    const auto* wanted = static_cast<const char*>(address);
    const auto covers = [wanted](const FreedStorage& record) {
        const auto* begin = static_cast<const char*>(record.address);
        return begin == wanted || (begin < wanted && wanted < begin + record.size);
    };
    return static_cast<std::size_t>(std::find_if(freed.begin(), freed.end(), covers) -
                                    freed.begin());
}

std::size_t freed_storage::indexOfSize(const std::vector<FreedStorage>& freed, std::size_t size) {
    const auto fits = [size](const FreedStorage& record) { return record.size == size; };
    return static_cast<std::size_t>(std::find_if(freed.begin(), freed.end(), fits) - freed.begin());
}
