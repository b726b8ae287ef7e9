// Takes the place of the global operator new in a test program: counts, and fails when it is told
// to.
#ifndef COUNTED_MEMORY_H
#define COUNTED_MEMORY_H

#include <cstddef>

namespace counted_memory {

// Allocations that have not been given back, all that were ever made, and the size of the newest.
long live();
long made();
std::size_t newestSize();

// The allocation after the next `count` ones fails, and then no more. At most one order is kept;
// cancelFailure() forgets it and tells whether there was one left. Any thread's allocations count.
void failAfter(long count);
bool cancelFailure();

} // namespace counted_memory

#endif
