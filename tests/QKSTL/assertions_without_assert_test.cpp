#include "QKSTL/QKHashMap.h"

#include <cassert>
#include <gtest/gtest.h>

#ifndef NDEBUG
#error "this program shows what happens where assert() is turned off"
#endif

namespace {

using Map = QKHashMap<std::string, std::string, INT_HASH<std::string>>;

TEST(AssertionsWithNdebugDeathTest, StayActiveInTheMap) {
    assert(!"assert() is off in this program");
    Map map;
    map.put("a", "1");
    EXPECT_DEATH(map.init(100, true), ": QKSTL/QKHashMap\\.h:[0-9]+: .*init.*: "
                                      "Assertion `m_nCount == 0' failed");
}

TEST(AssertionsWithNdebugDeathTest, StayActiveInTheElementHelpers) {
    std::string* nothing = nullptr;
    EXPECT_DEATH(container_construct(nothing, 1),
                 ": QKSTL/QKHashMap\\.h:[0-9]+: .*container_construct.*: "
                 "Assertion `nCount == 0 \\|\\| __null != pElements' failed");
}

TEST(AssertionsWithNdebugDeathTest, StayActiveInTheMemoryBlocks) {
    TMemPlex* chain = nullptr;
    EXPECT_DEATH(TMemPlex::create(chain, 0, 1), ": QKSTL/MemoryBlock\\.h:[0-9]+: .*create.*: "
                                                "Assertion `nMax > 0 && cbElement > 0' failed");
}

} // namespace
