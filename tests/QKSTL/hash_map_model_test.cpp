// Compares the map with containers too simple to be wrong, under random operations. A failure
// prints its seed; --gtest_random_seed=<seed> repeats it.
#include "QKSTL/QKHashMap.h"

#include "bucket_keys.h"
#include "counted_memory.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using Map = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
using Node = Map::TAssoc;

constexpr int kSteps = 5000;

unsigned int seedOfThisRun() {
    const int given = testing::GTEST_FLAG(random_seed);
    return given != 0 ? static_cast<unsigned int>(given) : std::random_device()() % 99999 + 1;
}

// Returns keys that share buckets, some with zero bytes and high bytes.
std::vector<std::string> someKeys() {
    std::vector<std::string> keys = keysInBucket(0, 6);
    for (std::uint32_t bucket : {1, 50, 98, 99})
        for (const std::string& key : keysInBucket(bucket, 5))
            keys.push_back(key);
    for (const std::string& key :
         {std::string(), std::string("\0", 1), std::string("\0a", 2), std::string("k\0a", 3),
          std::string("k\0b", 3), std::string("k"), std::string("\xFF\x80"), std::string(200, 'l')})
        keys.push_back(key);
    return keys;
}

int blocksOf(const Map& map) {
    int blocks = 0;
    for (const void* block = map.m_pBlocks; block != nullptr; ++blocks)
        std::memcpy(&block, block, sizeof block);
    return blocks;
}

// Checks the invariants that hold after every operation. Returns the entries bucket by bucket.
std::vector<const Node*> checkedEntries(const Map& map) {
    map.assertValid();
    std::vector<const Node*> entries;
    std::set<const Node*> used;
    for (std::uint32_t bucket = 0; map.m_pHashTable != nullptr && bucket < map.m_nHashTableSize;
         ++bucket)
        for (const Node* node = map.m_pHashTable[bucket]; node != nullptr; node = node->pNext) {
            EXPECT_EQ(node->nBucket, bucket);
            EXPECT_EQ(expectedHash(node->key) % map.m_nHashTableSize, bucket);
            EXPECT_TRUE(used.insert(node).second);
            entries.push_back(node);
        }
    EXPECT_EQ(map.m_nCount, static_cast<int>(entries.size()));

    int freeNodes = 0;
    for (const Node* node = map.m_pFreeList; node != nullptr; node = node->pNext, ++freeNodes)
        EXPECT_TRUE(used.insert(node).second);
    EXPECT_EQ(map.m_nCount + freeNodes, blocksOf(map) * map.m_nBlockSize);
    EXPECT_EQ(map.m_nCount == 0, map.m_pHashTable == nullptr && map.m_pBlocks == nullptr);

    std::vector<const Node*> iterated;
    for (const Node* node = map.firstAssoc(); node != nullptr; node = map.nextAssoc(node))
        iterated.push_back(node);
    EXPECT_EQ(iterated, entries);
    return entries;
}

class HashMapUnderRandomOperations : public testing::Test {
protected:
    const std::string& anyKey() { return m_keys[below(m_keys.size())]; }
    std::string anyValue() { return std::string(below(40), static_cast<char>('a' + below(26))); }
    std::size_t below(std::size_t limit) { return m_random() % limit; }

    const std::vector<std::string> m_keys = someKeys();
    const unsigned int m_seed = seedOfThisRun();
    std::mt19937 m_random{m_seed};
    testing::ScopedTrace m_trace{__FILE__, __LINE__,
                                 "--gtest_random_seed=" + std::to_string(m_seed)};
};

TEST_F(HashMapUnderRandomOperations, MatchesAStandardMap) {
    const long live = counted_memory::live();
    {
        Map map;
        std::unordered_map<std::string, std::string> model;
        for (int step = 0; step < kSteps; ++step) {
            const std::string& key = anyKey();
            const std::string value = anyValue();
            switch (below(8)) {
            case 0:
            case 1:
                map.put(key, value);
                model[key] = value;
                break;
            case 2:
                map.insert(key, value);
                model[key] = value;
                break;
            case 3:
                ASSERT_EQ(map[key], model[key]) << "step " << step;
                break;
            case 4:
                if (below(100) == 0) {
                    map.clear();
                    model.clear();
                }
                break;
            default:
                if (Node* node = map.getAssoc(key))
                    map.removeAssoc(node);
                model.erase(key);
            }
            const auto entries = checkedEntries(map);
            ASSERT_EQ(entries.size(), model.size()) << "step " << step;
            for (const Node* node : entries) {
                ASSERT_EQ(model.count(node->key), 1u) << "step " << step;
                ASSERT_EQ(node->value, model[node->key]) << "step " << step;
                ASSERT_EQ(map.getAssoc(node->key), node) << "step " << step;
                ASSERT_EQ(map.getAssoc(std::string_view(node->key)), node) << "step " << step;
            }
            ASSERT_FALSE(HasFailure()) << "step " << step;
        }
    }
    EXPECT_EQ(counted_memory::live(), live);
}

TEST_F(HashMapUnderRandomOperations, KeepsTheValuesOfAKeyLikeAList) {
    Map map;
    map.m_bMultiValue = true;
    std::map<std::string, std::vector<std::string>> model;
    for (int step = 0; step < kSteps; ++step) {
        const std::string& key = anyKey();
        auto& values = model[key];
        if (below(2) == 0) {
            const std::string value = anyValue();
            map.put(key, value);
            values.insert(values.begin() + (values.empty() ? 0 : 1), value);
        } else if (!values.empty()) {
            const std::size_t index = below(values.size());
            Node* node = map.getAssoc(key);
            for (std::size_t i = 0; i < index; ++i)
                node = node->pNext;
            map.removeAssoc(node);
            values.erase(values.begin() + static_cast<std::ptrdiff_t>(index));
        }
        if (values.empty())
            model.erase(key);

        std::map<std::string, std::vector<std::string>> held;
        for (const Node* node : checkedEntries(map))
            held[node->key].push_back(node->value);
        ASSERT_EQ(held, model) << "step " << step;
        for (const auto& [name, itsValues] : model)
            ASSERT_EQ(map.getAssoc(name)->value, itsValues.front()) << "step " << step;
        ASSERT_FALSE(HasFailure()) << "step " << step;
    }
}

TEST_F(HashMapUnderRandomOperations, VisitsEachEntryOnceWhileItRemovesSome) {
    Map map;
    for (int round = 0; round < 200; ++round) {
        for (std::size_t i = below(m_keys.size() + 1); i-- > 0;)
            map.put(anyKey(), anyValue());
        std::vector<std::string> expected;
        for (const Node* node : checkedEntries(map))
            expected.push_back(node->key);

        const std::size_t removedInTen = below(11);
        std::vector<std::string> visited;
        std::vector<std::string> kept;
        for (Node* node = map.firstAssoc(); node != nullptr;) {
            visited.push_back(node->key);
            const bool removed = below(10) < removedInTen;
            if (!removed)
                kept.push_back(node->key);
            node = removed ? map.removeAssoc(node) : map.nextAssoc(node);
        }
        ASSERT_EQ(visited, expected) << "round " << round;
        std::vector<std::string> left;
        for (const Node* node : checkedEntries(map))
            left.push_back(node->key);
        ASSERT_EQ(left, kept) << "round " << round;
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

} // namespace
