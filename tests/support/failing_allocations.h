// Lets each allocation of an action fail in turn. The test program must contain counted_memory.cpp.
#ifndef FAILING_ALLOCATIONS_H
#define FAILING_ALLOCATIONS_H

#include "counted_memory.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

// Runs one round for each allocation that `act` makes, and one in which none fails: `prepare`,
// `act`, then `check(refused)`, where `refused` says whether `act` threw std::bad_alloc. Checks
// that no round leaks memory.
template <class Prepare, class Act, class Check>
void failEachAllocation(Prepare prepare, Act act, Check check) {
    long live = 0;
    bool failed = true;
    for (long allocations = 0; failed; ++allocations) {
        SCOPED_TRACE("memory for " + std::to_string(allocations) + " allocations");
        prepare();
        bool refused = false;
        counted_memory::failAfter(allocations);
        try {
            act();
        } catch (const std::bad_alloc&) {
            refused = true;
        }
        failed = !counted_memory::cancelFailure();
        EXPECT_TRUE(failed || !refused);
        check(refused);
        const long left = counted_memory::live() - live;
        EXPECT_TRUE(allocations == 0 || left == 0) << left << " pieces of memory are left";
        live = counted_memory::live(); // the first round may cache something
        ASSERT_LT(allocations, 10000);
        ASSERT_TRUE(failed || allocations > 0) << "no memory is needed";
    }
}

#endif
