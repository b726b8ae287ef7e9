// Compiled code reads the map's members at these offsets.
#include "QKSTL/QKHashMap.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

using Map = QKHashMap<std::string, void*, INT_HASH<std::string>>;
using Node = Map::TAssoc;

constexpr std::size_t roundedUp(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

TEST(HashMapLayout, HasTheMembersInTheirOrder) {
    constexpr std::size_t kPointer = sizeof(void*);
    EXPECT_EQ(offsetof(Map, m_bMultiValue), 0u);
    EXPECT_EQ(offsetof(Map, m_pHashTable), kPointer);
    EXPECT_EQ(offsetof(Map, m_nHashTableSize), 2 * kPointer);
    EXPECT_EQ(offsetof(Map, m_nCount), 2 * kPointer + 4);
    EXPECT_EQ(offsetof(Map, m_pFreeList), 2 * kPointer + 8);
    EXPECT_EQ(offsetof(Map, m_pBlocks), 3 * kPointer + 8);
    EXPECT_EQ(offsetof(Map, m_nBlockSize), 4 * kPointer + 8);
    EXPECT_EQ(sizeof(Map), roundedUp(4 * kPointer + 12, kPointer));
}

TEST(HashMapLayout, HasTheMembersOfTheirTypes) {
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_bMultiValue), bool>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_pHashTable), Node**>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_nHashTableSize), std::uint32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_nCount), std::int32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_pFreeList), Node*>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_pBlocks), TMemPlex*>));
    EXPECT_TRUE((std::is_same_v<decltype(Map::m_nBlockSize), std::int32_t>));
    EXPECT_FALSE(std::is_polymorphic_v<Map>);
}

TEST(HashMapLayout, HasTheNodesFieldsInTheirOrder) {
    const std::size_t key = roundedUp(sizeof(void*) + 4, alignof(std::string));
    EXPECT_EQ(offsetof(Node, pNext), 0u);
    EXPECT_EQ(offsetof(Node, nBucket), sizeof(void*));
    EXPECT_EQ(offsetof(Node, key), key);
    EXPECT_EQ(offsetof(Node, value), key + sizeof(std::string));
    EXPECT_EQ(sizeof(Node), key + sizeof(std::string) + sizeof(void*));
    EXPECT_TRUE((std::is_same_v<decltype(Node::pNext), Node*>));
    EXPECT_TRUE((std::is_same_v<decltype(Node::nBucket), std::uint32_t>));
}

TEST(HashMapLayout, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Map>);
    EXPECT_FALSE(std::is_copy_assignable_v<Map>);
}

} // namespace
