// Replaces the global operator new in a test program: counts allocations, and lets one fail on
// request.
#ifndef COUNTED_MEMORY_H
#define COUNTED_MEMORY_H

#include <cstddef>

namespace counted_memory {

// Return the number of allocations that have not been freed, the number of all allocations so far,
// and the size of the newest.
long live();
long made();
std::size_t newestSize();

// Lets the allocation after the next `count` ones fail, on any thread; a second call replaces the
// first. cancelFailure() cancels a failure that has not happened yet and returns whether there was
// one.
void failAfter(long count);
bool cancelFailure();

} // namespace counted_memory

#endif
