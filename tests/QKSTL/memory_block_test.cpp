#include "QKSTL/MemoryBlock.h"

#include "counted_memory.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

// The only field of a block's header.
TMemPlex* olderBlock(const TMemPlex* block) {
    TMemPlex* older;
    std::memcpy(&older, block, sizeof older);
    return older;
}

class MemoryBlocks : public testing::Test {
protected:
    ~MemoryBlocks() override { TMemPlex::release(m_chain); }

    TMemPlex* m_chain = nullptr;
};
using MemoryBlocksDeathTest = MemoryBlocks;

TEST_F(MemoryBlocks, HaveAHeaderOfOnePointer) {
    EXPECT_EQ(sizeof(TMemPlex), sizeof(void*));
    EXPECT_TRUE(std::is_standard_layout_v<TMemPlex>);
}

TEST_F(MemoryBlocks, AreOneAllocationOfHeaderAndElements) {
    const long made = counted_memory::made();
    TMemPlex::create(m_chain, 7, 12);
    EXPECT_EQ(counted_memory::made(), made + 1);
    EXPECT_EQ(counted_memory::newestSize(), sizeof(void*) + 7 * 12);
}

TEST_F(MemoryBlocks, HaveTheirElementsRightAfterTheHeader) {
    TMemPlex* block = TMemPlex::create(m_chain, 3, 5);
    EXPECT_EQ(static_cast<char*>(block->data()), reinterpret_cast<char*>(block) + sizeof(void*));
    std::memset(block->data(), 0xA5, 3 * 5); // all of it may be written
    EXPECT_EQ(olderBlock(block), nullptr);
}

TEST_F(MemoryBlocks, CanHoldASingleByte) {
    TMemPlex* block = TMemPlex::create(m_chain, 1, 1);
    *static_cast<char*>(block->data()) = 'x';
    EXPECT_EQ(counted_memory::newestSize(), sizeof(void*) + 1);
}

TEST_F(MemoryBlocks, ArePutAtTheFrontOfTheChain) {
    TMemPlex* first = TMemPlex::create(m_chain, 1, 8);
    EXPECT_EQ(m_chain, first);
    EXPECT_EQ(olderBlock(first), nullptr);

    TMemPlex* second = TMemPlex::create(m_chain, 2, 8);
    EXPECT_EQ(m_chain, second);
    EXPECT_EQ(olderBlock(second), first);

    TMemPlex* third = TMemPlex::create(m_chain, 3, 8);
    EXPECT_EQ(m_chain, third);
    EXPECT_EQ(olderBlock(third), second);
    EXPECT_EQ(olderBlock(second), first);
    EXPECT_EQ(olderBlock(first), nullptr);
}

TEST_F(MemoryBlocks, DoNotChangeTheElementsOfOlderBlocks) {
    auto* numbers = static_cast<std::uint32_t*>(TMemPlex::create(m_chain, 2, 4)->data());
    numbers[0] = 1;
    numbers[1] = 2;
    std::memset(TMemPlex::create(m_chain, 2, 4)->data(), 0, 2 * 4);
    EXPECT_EQ(numbers[0], 1u);
    EXPECT_EQ(numbers[1], 2u);
}

TEST_F(MemoryBlocks, AreAllReleasedTogether) {
    const long live = counted_memory::live();
    for (unsigned int count = 1; count <= 20; ++count)
        TMemPlex::create(m_chain, count, 16);
    EXPECT_EQ(counted_memory::live(), live + 20);
    TMemPlex::release(m_chain);
    EXPECT_EQ(counted_memory::live(), live);
    EXPECT_EQ(m_chain, nullptr);
}

TEST_F(MemoryBlocks, CanBeReleasedWhenThereAreNone) {
    const long live = counted_memory::live();
    TMemPlex::release(m_chain);
    EXPECT_EQ(m_chain, nullptr);
    EXPECT_EQ(counted_memory::live(), live);
}

TEST_F(MemoryBlocks, StartANewChainAfterARelease) {
    TMemPlex::create(m_chain, 1, 8);
    TMemPlex::release(m_chain);
    EXPECT_EQ(olderBlock(TMemPlex::create(m_chain, 1, 8)), nullptr);
}

TEST_F(MemoryBlocks, DoNotChangeTheChainWhenMemoryRunsOut) {
    TMemPlex* first = TMemPlex::create(m_chain, 1, 8);
    counted_memory::failAfter(0);
    EXPECT_THROW(TMemPlex::create(m_chain, 1, 8), std::bad_alloc);
    counted_memory::cancelFailure();
    EXPECT_EQ(m_chain, first);
    EXPECT_EQ(olderBlock(first), nullptr);
}

TEST_F(MemoryBlocks, AreRefusedForMoreBytesThanASizeCanHold) {
    struct {
        unsigned int count;
        unsigned int size;
    } const refused[] = {
        {UINT_MAX, UINT_MAX}, {UINT_MAX, UINT_MAX - 1}, {UINT_MAX / 2 + 2, UINT_MAX}};
    TMemPlex* first = TMemPlex::create(m_chain, 1, 8);
    const long live = counted_memory::live();
    for (const auto& row : refused) {
        EXPECT_THROW(TMemPlex::create(m_chain, row.count, row.size), std::bad_alloc)
            << row.count << " x " << row.size;
        EXPECT_EQ(m_chain, first);
    }
    EXPECT_EQ(olderBlock(first), nullptr);
    EXPECT_EQ(counted_memory::live(), live);
}

TEST_F(MemoryBlocksDeathTest, AbortForNoElements) {
    const char message[] = ": QKSTL/MemoryBlock\\.h:[0-9]+: .*TMemPlex::create.*: "
                           "Assertion `nMax > 0 && cbElement > 0' failed\\.";
    EXPECT_DEATH(TMemPlex::create(m_chain, 0, 8), message);
    EXPECT_DEATH(TMemPlex::create(m_chain, 8, 0), message);
    EXPECT_DEATH(TMemPlex::create(m_chain, 0, 0), message);
}

} // namespace
