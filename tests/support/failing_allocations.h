// Lets the allocations of an action fail, one in each run. The test program has counted_memory.cpp.
#ifndef FAILING_ALLOCATIONS_H
#define FAILING_ALLOCATIONS_H

#include "counted_memory.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

// One round for each allocation that `act` makes, and one in which none fails: `prepare`, `act`,
// and `check(refused)`, which is told whether std::bad_alloc came out. After all rounds as much
// memory is in use as before.
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
        live = counted_memory::live(); // with what was made once, and with what a failure kept
        ASSERT_LT(allocations, 10000);
        ASSERT_TRUE(failed || allocations > 0) << "no memory is needed";
    }
}

#endif
