// Replaces the global operators new and delete in a test program, and records in which order
// storage is freed.
#ifndef FREED_STORAGE_H
#define FREED_STORAGE_H

#include <cstddef>
#include <vector>

struct FreedStorage {
    const void* address;
    std::size_t size; // 0 if the caller of operator delete did not pass it
};

namespace freed_storage {

// Records what this thread frees from now on.
void start();
// Records a null address, to separate what was freed before and after.
void mark();
// Stops recording and returns what was freed since start(), in order.
std::vector<FreedStorage> stop();

// Return the index of the first record that covers `address`, or that has this size; if there is
// none, the number of records.
std::size_t indexOf(const std::vector<FreedStorage>& freed, const void* address);
std::size_t indexOfSize(const std::vector<FreedStorage>& freed, std::size_t size);

} // namespace freed_storage

#endif
