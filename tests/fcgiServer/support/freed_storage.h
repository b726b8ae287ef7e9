// Takes the place of the global operator new and delete in a test program and tells in which
// order storage went back.
#ifndef FREED_STORAGE_H
#define FREED_STORAGE_H

#include <cstddef>
#include <vector>

struct FreedStorage {
    const void* address;
    std::size_t size; // 0 where the caller of operator delete did not tell it
};

namespace freed_storage {

// Records what this thread frees from now on.
void start();
// Records a null address, as a mark between what was freed before and after.
void mark();
// What was freed since start(), in order.
std::vector<FreedStorage> stop();

// Where the first record is that covers `address`, or that has this size; the end if there is
// none.
std::size_t indexOf(const std::vector<FreedStorage>& freed, const void* address);
std::size_t indexOfSize(const std::vector<FreedStorage>& freed, std::size_t size);

} // namespace freed_storage

#endif
