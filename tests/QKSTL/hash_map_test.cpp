#include "QKSTL/QKHashMap.h"

#include "bucket_keys.h"
#include "counted_memory.h"

#include <gtest/gtest.h>
#include <string_view>
#include <vector>

namespace {

using Map = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
using PointerMap = QKHashMap<std::string, void*, INT_HASH<std::string>>;
using Node = Map::TAssoc;

// Returns the entries in the order of an iteration.
std::vector<std::string> keysOf(const Map& map) {
    std::vector<std::string> keys;
    for (Node* node = map.firstAssoc(); node != nullptr; node = map.nextAssoc(node))
        keys.push_back(node->key);
    return keys;
}

std::string valueOf(const Map& map, const std::string& key) {
    const Node* node = map.getAssoc(key);
    return node != nullptr ? node->value : "(absent)";
}

void remove(Map& map, const std::string& key) {
    map.removeAssoc(map.getAssoc(key));
}

// Returns whether the map has no bucket array, no nodes and no blocks.
void expectUnallocated(const Map& map) {
    EXPECT_EQ(map.m_nCount, 0);
    EXPECT_EQ(map.m_pHashTable, nullptr);
    EXPECT_EQ(map.m_pFreeList, nullptr);
    EXPECT_EQ(map.m_pBlocks, nullptr);
}

std::string nthKey(int number) {
    return "key" + std::to_string(number);
}

TEST(HashMap, StartsWithItsDefaultsAndAllocatesNothing) {
    const long made = counted_memory::made();
    Map map;
    EXPECT_FALSE(map.m_bMultiValue);
    EXPECT_EQ(map.m_nHashTableSize, 100u);
    EXPECT_EQ(map.m_nBlockSize, 10);
    expectUnallocated(map);
    map.assertValid();
    EXPECT_EQ(counted_memory::made(), made);
}

TEST(HashMap, FindsAnEntryByAViewWithoutCopyingIt) {
    Map map;
    map.put("a key of more than fifteen bytes", "1");
    const std::string longer = "a key of more than fifteen bytes and more";
    const long made = counted_memory::made();
    const Node* found = map.getAssoc(std::string_view(longer).substr(0, 32));
    const Node* absent = map.getAssoc(std::string_view(longer));
    EXPECT_EQ(counted_memory::made(), made);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->value, "1");
    EXPECT_EQ(absent, nullptr);
}

TEST(HashMap, FindsNothingWhileItIsEmpty) {
    const long made = counted_memory::made();
    Map map;
    EXPECT_EQ(map.getAssoc("a"), nullptr);
    EXPECT_EQ(map.getAssoc(""), nullptr);
    EXPECT_EQ(map.firstAssoc(), nullptr);
    expectUnallocated(map);
    EXPECT_EQ(counted_memory::made(), made);
}

TEST(HashMap, HashesTheBytesBeforeTheFirstZeroByte) {
    const INT_HASH<std::string> hash{};
    EXPECT_EQ(hash(""), 0u);
    EXPECT_EQ(hash("a"), 97u);
    EXPECT_EQ(hash("ab"), 97u * 131 + 98);
    EXPECT_EQ(hash("ba"), 98u * 131 + 97);
    EXPECT_EQ(hash("\xFF"), 255u);
    EXPECT_EQ(hash(std::string("\0abc", 4)), 0u);
    EXPECT_EQ(hash(std::string("ab\0cd", 5)), hash("ab"));
    for (const std::string& key :
         {std::string("JSESSIONID"), std::string("Content-Type"), std::string("\x80\x7F\xFE\x01"),
          std::string(1000, 'z'), std::string(1000, '\xFF'), std::string("a\0b", 3)})
        EXPECT_EQ(hash(key), expectedHash(key)) << key;
}

TEST(HashMap, HashesToThirtyOneBits) {
    bool wrapped = false;
    for (int number = 0; number < 1000; ++number) {
        const std::string name = "a rather long name " + std::to_string(number);
        const std::uint32_t hash = INT_HASH<std::string>()(name);
        EXPECT_LE(hash, 0x7FFFFFFFu);
        EXPECT_EQ(hash, expectedHash(name));
        wrapped = wrapped || hash > 0x3FFFFFFFu;
    }
    EXPECT_TRUE(wrapped);
}

TEST(HashMap, PutsEachEntryIntoTheBucketOfItsHash) {
    Map map;
    for (const char* key : {"a", "ab", "JSESSIONID", "Content-Type", "\xE9t\xE9"}) {
        map.put(key, "1");
        const Node* node = map.getAssoc(key);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->nBucket, expectedHash(key) % 100);
        EXPECT_EQ(map.m_pHashTable[node->nBucket], node);
    }
}

TEST(HashMap, ReturnsWhatWasPut) {
    Map map;
    map.put("Location", "/servlet");
    map.put("Status", "302");
    EXPECT_EQ(map.m_nCount, 2);
    EXPECT_EQ(valueOf(map, "Location"), "/servlet");
    EXPECT_EQ(valueOf(map, "Status"), "302");
    EXPECT_EQ(valueOf(map, "status"), "(absent)");
    EXPECT_EQ(valueOf(map, "Statu"), "(absent)");
    EXPECT_EQ(valueOf(map, "Status "), "(absent)");
}

TEST(HashMap, KeepsItsOwnCopies) {
    Map map;
    std::string name = "name";
    std::string value = "value";
    map.put(name, value);
    name[0] = value[0] = 'X';
    EXPECT_EQ(valueOf(map, "name"), "value");
    EXPECT_EQ(map.m_nCount, 1);
}

TEST(HashMap, ReplacesTheValueOfAnExistingKey) {
    Map map;
    map.put("a", "1");
    const Node* node = map.getAssoc("a");
    map.put("a", "2");
    EXPECT_EQ(map.m_nCount, 1);
    EXPECT_EQ(map.getAssoc("a"), node);
    EXPECT_EQ(node->value, "2");
    EXPECT_EQ(keysOf(map), std::vector<std::string>{"a"});
}

TEST(HashMap, InsertsTheSameWayAsItPuts) {
    Map map;
    map.insert("a", "1");
    map.insert("a", "2");
    EXPECT_EQ(map.m_nCount, 1);
    EXPECT_EQ(valueOf(map, "a"), "2");

    map.m_bMultiValue = true;
    map.insert("a", "3");
    EXPECT_EQ(map.m_nCount, 2);
    EXPECT_EQ(valueOf(map, "a"), "2");
}

TEST(HashMap, AddsAnEmptyValueForAnUnknownSubscript) {
    Map map;
    std::string& value = map["a"];
    EXPECT_EQ(value, "");
    EXPECT_EQ(map.m_nCount, 1);
    value = "1";
    EXPECT_EQ(map["a"], "1");
    EXPECT_EQ(&map["a"], &map.getAssoc("a")->value);
    EXPECT_EQ(map.m_nCount, 1);

    PointerMap pointers;
    EXPECT_EQ(pointers["a"], nullptr);
    EXPECT_EQ(pointers.m_nCount, 1);
}

TEST(HashMap, KeepsTheEmptyKeyInTheFirstBucket) {
    Map map;
    map.put("", "nothing");
    ASSERT_NE(map.getAssoc(""), nullptr);
    EXPECT_EQ(map.getAssoc("")->nBucket, 0u);
    EXPECT_EQ(map.m_pHashTable[0], map.getAssoc(""));
    EXPECT_EQ(valueOf(map, ""), "nothing");
    remove(map, "");
    expectUnallocated(map);
}

TEST(HashMap, DistinguishesKeysAfterAZeroByte) {
    const std::string one("ab\0c", 4);
    const std::string other("ab\0d", 4);
    Map map;
    map.put(one, "one");
    map.put(other, "other");
    map.put("ab", "short");
    EXPECT_EQ(map.m_nCount, 3);
    EXPECT_EQ(valueOf(map, one), "one");
    EXPECT_EQ(valueOf(map, other), "other");
    EXPECT_EQ(valueOf(map, "ab"), "short");
    EXPECT_EQ(map.getAssoc(one)->nBucket, map.getAssoc(other)->nBucket);
    EXPECT_EQ(map.getAssoc(one)->nBucket, map.getAssoc("ab")->nBucket);

    map.put(std::string("\0x", 2), "zero first");
    EXPECT_EQ(map.getAssoc(std::string("\0x", 2))->nBucket, 0u);
}

TEST(HashMap, KeepsKeysThatShareABucketNewestFirst) {
    Map map;
    const auto keys = keysInBucket(42, 3);
    for (const std::string& key : keys)
        map.put(key, "value of " + key);
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{keys[2], keys[1], keys[0]}));
    for (const std::string& key : keys)
        EXPECT_EQ(valueOf(map, key), "value of " + key);
    EXPECT_EQ(valueOf(map, keysInBucket(42, 4)[3]), "(absent)");

    map.put(keys[0], "replaced"); // moves nothing
    map[keys[1]];
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{keys[2], keys[1], keys[0]}));
}

TEST(HashMap, PutsNewSubscriptsAtTheHeadOfTheirBucket) {
    Map map;
    const auto keys = keysInBucket(7, 2);
    map[keys[0]] = "old";
    map[keys[1]] = "new";
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{keys[1], keys[0]}));
    EXPECT_EQ(map.getAssoc(keys[1])->nBucket, 7u);
}

TEST(HashMap, IteratesFromBucketToBucket) {
    Map map;
    const auto low = keysInBucket(3, 3);
    const auto high = keysInBucket(97, 2);
    map.put(high[0], "");
    map.put(low[0], "");
    map.put(low[1], "");
    map.put(high[1], "");
    map.put(low[2], "");
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{low[2], low[1], low[0], high[1], high[0]}));
}

TEST(HashMap, IteratesOverTheFirstAndTheLastBucket) {
    Map map;
    const std::string first = keysInBucket(0, 1)[0];
    const std::string last = keysInBucket(99, 1)[0];
    map.put(last, "");
    EXPECT_EQ(keysOf(map), std::vector<std::string>{last});
    map.put(first, "");
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{first, last}));
}

TEST(HashMap, HasNoIterationWithoutBuckets) {
    Map map;
    map.put("a", "1");
    const Node* node = map.getAssoc("a");
    map.m_nHashTableSize = 0;
    EXPECT_EQ(map.firstAssoc(), nullptr);
    EXPECT_EQ(map.nextAssoc(node), nullptr);
    map.m_nHashTableSize = 100;
}

TEST(HashMap, AllocatesABlockForEveryTenEntries) {
    const long live = counted_memory::live();
    Map map;
    map.put(nthKey(0), "");
    EXPECT_EQ(counted_memory::live(), live + 2); // buckets, block
    EXPECT_EQ(counted_memory::newestSize(), sizeof(void*) + 10 * sizeof(Node));
    for (int number = 1; number < 10; ++number)
        map.put(nthKey(number), "");
    EXPECT_EQ(counted_memory::live(), live + 2);
    map.put(nthKey(10), "");
    EXPECT_EQ(counted_memory::live(), live + 3);
    for (int number = 11; number < 20; ++number)
        map.put(nthKey(number), "");
    EXPECT_EQ(counted_memory::live(), live + 3);
    map.put(nthKey(20), "");
    EXPECT_EQ(counted_memory::live(), live + 4);
}

TEST(HashMap, FreesAllMemoryWithTheLastOfElevenEntries) {
    const long live = counted_memory::live();
    Map map;
    for (int number = 0; number < 11; ++number)
        map.put(nthKey(number), "");
    for (int number = 0; number < 10; ++number)
        remove(map, nthKey(number));
    EXPECT_EQ(map.m_nCount, 1);
    EXPECT_EQ(counted_memory::live(), live + 3); // blocks go together, not one by one
    remove(map, nthKey(10));
    EXPECT_EQ(counted_memory::live(), live);
    expectUnallocated(map);
}

TEST(HashMap, CanBeFilledAgainAfterItsLastEntryWasRemoved) {
    Map map;
    map.put("a", "1");
    remove(map, "a");
    expectUnallocated(map);
    map.put("a", "2");
    EXPECT_EQ(valueOf(map, "a"), "2");
    EXPECT_EQ(map.m_nHashTableSize, 100u);
}

TEST(HashMap, ReusesExactlyTheNodeThatWasFreedLast) {
    Map map;
    for (int number = 0; number < 5; ++number)
        map.put(nthKey(number), "old");
    const Node* second = map.getAssoc(nthKey(1));
    const Node* fourth = map.getAssoc(nthKey(3));
    remove(map, nthKey(1));
    remove(map, nthKey(3));
    EXPECT_EQ(map.m_pFreeList, fourth);
    EXPECT_EQ(map.m_pFreeList->pNext, second);

    const long made = counted_memory::made();
    EXPECT_EQ(&map["new"], &fourth->value);
    EXPECT_EQ(fourth->value, "");
    EXPECT_EQ(&map["newer"], &second->value);
    EXPECT_EQ(map.m_nCount, 5);
    EXPECT_EQ(counted_memory::made(), made);
}

TEST(HashMap, UsesFreedNodesBeforeItAllocatesABlock) {
    Map map;
    for (int number = 0; number < 10; ++number)
        map.put(nthKey(number), "");
    remove(map, nthKey(4));
    const long made = counted_memory::made();
    map.put("new", "");
    EXPECT_EQ(counted_memory::made(), made);
    map.put("newer", "");
    EXPECT_EQ(counted_memory::made(), made + 1);
}

TEST(HashMap, UsesTheNodesOfABlockInAscendingOrder) {
    Map map;
    Node* first = map.newAssoc();
    EXPECT_EQ(first, map.m_pBlocks->data());
    for (int number = 1; number < 10; ++number)
        EXPECT_EQ(map.newAssoc(), first + number);
    EXPECT_EQ(map.m_pFreeList, nullptr);
    TMemPlex* firstBlock = map.m_pBlocks;

    Node* eleventh = map.newAssoc();
    EXPECT_NE(map.m_pBlocks, firstBlock);
    EXPECT_EQ(eleventh, map.m_pBlocks->data());
    for (int number = 0; number < 10; ++number)
        map.freeAssoc(first + number);
    map.freeAssoc(eleventh);
}

TEST(HashMap, ReturnsNewNodesEmptyAndInNoBucket) {
    Map map;
    map.put("a", "1");
    const std::string text = "a text that is too long to be stored in the string object itself";
    map.put("b", text);
    Node* former = map.getAssoc("b");
    remove(map, "b");
    Node* node = map.newAssoc();
    EXPECT_EQ(node, former);
    EXPECT_EQ(node->key, "");
    EXPECT_EQ(node->value, "");
    EXPECT_EQ(map.m_nCount, 2);
    EXPECT_EQ(keysOf(map), std::vector<std::string>{"a"});
    map.freeAssoc(node);
    EXPECT_EQ(map.m_nCount, 1);
    EXPECT_EQ(map.m_pFreeList, node);
}

TEST(HashMap, UsesTheBlockSizeThatIsSet) {
    Map map;
    map.m_nBlockSize = 1;
    map.put("a", "");
    const long made = counted_memory::made();
    map.put("b", "");
    EXPECT_EQ(counted_memory::made(), made + 1);
    EXPECT_EQ(counted_memory::newestSize(), sizeof(void*) + sizeof(Node));
}

TEST(HashMap, RemovesTheHeadTheMiddleAndTheTailOfABucket) {
    const auto keys = keysInBucket(50, 3); // iterated as 2, 1, 0
    const struct {
        int removed;
        std::vector<std::string> left;
        const char* next;
    } rows[] = {
        {2, {keys[1], keys[0]}, keys[1].c_str()},
        {1, {keys[2], keys[0]}, keys[0].c_str()},
        {0, {keys[2], keys[1]}, nullptr},
    };
    for (const auto& row : rows) {
        Map map;
        for (const std::string& key : keys)
            map.put(key, "");
        const Node* next = map.removeAssoc(map.getAssoc(keys[row.removed]));
        EXPECT_EQ(keysOf(map), row.left);
        EXPECT_EQ(map.m_nCount, 2);
        EXPECT_EQ(map.getAssoc(keys[row.removed]), nullptr);
        EXPECT_EQ(next, row.next != nullptr ? map.getAssoc(row.next) : nullptr);
    }
}

TEST(HashMap, ReturnsTheNextBucketsHeadWhenItRemovesATail) {
    Map map;
    const std::string first = keysInBucket(10, 1)[0];
    const auto second = keysInBucket(60, 2);
    map.put(first, "");
    map.put(second[0], "");
    map.put(second[1], "");
    EXPECT_EQ(map.removeAssoc(map.getAssoc(first)), map.getAssoc(second[1]));
    EXPECT_EQ(map.removeAssoc(map.getAssoc(second[0])), nullptr);
    EXPECT_EQ(map.m_nCount, 1);
}

TEST(HashMap, CanRemoveWhileItIterates) {
    Map map;
    for (int number = 0; number < 200; ++number)
        map.put(nthKey(number), number % 3 == 0 ? "go" : "stay");
    int visited = 0;
    for (Node* node = map.firstAssoc(); node != nullptr; ++visited)
        node = node->value == "go" ? map.removeAssoc(node) : map.nextAssoc(node);
    EXPECT_EQ(visited, 200);
    EXPECT_EQ(map.m_nCount, 133);
    for (int number = 0; number < 200; ++number)
        EXPECT_EQ(map.getAssoc(nthKey(number)) == nullptr, number % 3 == 0) << number;
}

TEST(HashMap, FreesAllMemoryWhenAnIterationRemovesAll) {
    const long live = counted_memory::live();
    Map map;
    for (int number = 0; number < 200; ++number)
        map.put(nthKey(number), "");
    int visited = 0;
    for (Node* node = map.firstAssoc(); node != nullptr; ++visited)
        node = map.removeAssoc(node);
    EXPECT_EQ(visited, 200);
    expectUnallocated(map);
    EXPECT_EQ(counted_memory::live(), live);
}

TEST(HashMap, ChangesNothingWhenAnAbsentKeyIsRemoved) {
    Map map;
    EXPECT_EQ(map.removeAssoc(map.getAssoc("a")), nullptr);
    expectUnallocated(map);
    map.put("a", "1");
    EXPECT_EQ(map.removeAssoc(map.getAssoc("b")), nullptr);
    EXPECT_EQ(map.m_nCount, 1);
    EXPECT_EQ(map.getAssoc("a")->value, "1");
}

TEST(HashMap, FreesAllMemoryWhenNodesAreFreedDirectly) {
    const long live = counted_memory::live();
    Map map;
    Node* node = map.newAssoc();
    EXPECT_EQ(map.m_nCount, 1);
    map.freeAssoc(node);
    expectUnallocated(map);
    EXPECT_EQ(counted_memory::live(), live);
}

TEST(HashMap, IsEmptyAfterClearButKeepsItsSizes) {
    const long live = counted_memory::live();
    Map map;
    map.init(7, false);
    map.m_nBlockSize = 3;
    map.m_bMultiValue = true;
    for (int number = 0; number < 20; ++number)
        map.put(nthKey(number),
                "a value that is too long to be stored in the string object itself");
    map.clear();
    expectUnallocated(map);
    EXPECT_EQ(counted_memory::live(), live);
    EXPECT_EQ(map.m_nHashTableSize, 7u);
    EXPECT_EQ(map.m_nBlockSize, 3);
    EXPECT_TRUE(map.m_bMultiValue);
    EXPECT_EQ(map.getAssoc(nthKey(0)), nullptr);
    EXPECT_EQ(map.firstAssoc(), nullptr);

    map.put("a", "1");
    EXPECT_EQ(map.getAssoc("a")->nBucket, expectedHash("a") % 7);
    map.clear();
    map.clear();
    expectUnallocated(map);
}

TEST(HashMap, FreesAllMemoryInItsDestructor) {
    const long live = counted_memory::live();
    {
        Map map;
        for (int number = 0; number < 25; ++number)
            map.put(nthKey(number), std::string(100, 'v'));
    }
    EXPECT_EQ(counted_memory::live(), live);
}

TEST(HashMap, ResizesItsBucketsWithInit) {
    const long live = counted_memory::live();
    Map map;
    map.init(7, false);
    EXPECT_EQ(map.m_nHashTableSize, 7u);
    EXPECT_EQ(map.m_pHashTable, nullptr);
    EXPECT_EQ(counted_memory::live(), live);

    map.init(13, true);
    EXPECT_EQ(map.m_nHashTableSize, 13u);
    ASSERT_NE(map.m_pHashTable, nullptr);
    EXPECT_EQ(counted_memory::live(), live + 1);
    EXPECT_EQ(counted_memory::newestSize(), 13 * sizeof(void*));
    for (int bucket = 0; bucket < 13; ++bucket)
        EXPECT_EQ(map.m_pHashTable[bucket], nullptr);

    map.init(3, true); // replaces the array
    EXPECT_EQ(counted_memory::live(), live + 1);
    EXPECT_EQ(counted_memory::newestSize(), 3 * sizeof(void*));
    map.init(5, false); // frees the array
    EXPECT_EQ(map.m_pHashTable, nullptr);
    EXPECT_EQ(counted_memory::live(), live);
    EXPECT_EQ(map.m_nHashTableSize, 5u);
}

TEST(HashMap, IsAllocatedAndEmptyAfterInit) {
    Map map;
    map.init(100, true);
    EXPECT_EQ(map.m_nCount, 0);
    EXPECT_EQ(map.m_pBlocks, nullptr);
    EXPECT_EQ(map.firstAssoc(), nullptr);
    EXPECT_EQ(map.getAssoc("a"), nullptr);
    const long made = counted_memory::made();
    map.put("a", "1");
    EXPECT_EQ(counted_memory::made(), made + 1); // the block; the buckets are there
    EXPECT_EQ(valueOf(map, "a"), "1");
}

TEST(HashMap, FreesPreparedBucketsInClear) {
    const long live = counted_memory::live();
    Map map;
    map.init(50, true);
    map.clear();
    expectUnallocated(map);
    EXPECT_EQ(counted_memory::live(), live);
}

TEST(HashMap, WorksWithASingleBucket) {
    Map map;
    map.init(1, false);
    map.put("a", "1");
    map.put("b", "2");
    map.put("c", "3");
    EXPECT_EQ(keysOf(map), (std::vector<std::string>{"c", "b", "a"}));
    EXPECT_EQ(valueOf(map, "b"), "2");
    EXPECT_EQ(map.removeAssoc(map.getAssoc("a")), nullptr);
}

TEST(HashMap, NeverRehashes) {
    Map map;
    for (int number = 0; number < 1000; ++number)
        map.put(nthKey(number), std::to_string(number));
    EXPECT_EQ(map.m_nHashTableSize, 100u);
    EXPECT_EQ(map.m_nCount, 1000);
    for (int number = 0; number < 1000; ++number)
        EXPECT_EQ(valueOf(map, nthKey(number)), std::to_string(number));
}

// Several values per key

TEST(MultiValueHashMap, PutsALaterValueRightAfterTheFirst) {
    Map map;
    map.m_bMultiValue = true;
    const auto keys = keysInBucket(20, 2);
    map.put(keys[0], "first");
    map.put(keys[1], "other"); // heads the bucket
    map.put(keys[0], "second");
    map.put(keys[0], "third");
    EXPECT_EQ(map.m_nCount, 4);

    const Node* other = map.firstAssoc();
    EXPECT_EQ(other->value, "other");
    const Node* first = other->pNext;
    EXPECT_EQ(first->value, "first");
    EXPECT_EQ(first->pNext->value, "third");
    EXPECT_EQ(first->pNext->pNext->value, "second");
    EXPECT_EQ(first->pNext->pNext->pNext, nullptr);
    for (const Node* node = first; node != nullptr; node = node->pNext) {
        EXPECT_EQ(node->key, keys[0]);
        EXPECT_EQ(node->nBucket, 20u);
    }
}

TEST(MultiValueHashMap, FindsTheFirstValue) {
    Map map;
    map.m_bMultiValue = true;
    map.put("a", "1");
    const Node* first = map.getAssoc("a");
    map.put("a", "2");
    map.put("a", "3");
    EXPECT_EQ(map.getAssoc("a"), first);
    EXPECT_EQ(map["a"], "1");
    EXPECT_EQ(map.m_nCount, 3);
}

TEST(MultiValueHashMap, RemovesExactlyTheGivenEntry) {
    Map map;
    map.m_bMultiValue = true;
    map.put("a", "1");
    map.put("a", "2");
    map.put("a", "3"); // 1, 3, 2
    EXPECT_EQ(map.removeAssoc(map.getAssoc("a")->pNext)->value, "2");
    EXPECT_EQ(valueOf(map, "a"), "1");
    EXPECT_EQ(map.removeAssoc(map.getAssoc("a"))->value, "2");
    EXPECT_EQ(valueOf(map, "a"), "2");
    EXPECT_EQ(map.m_nCount, 1);
    remove(map, "a");
    expectUnallocated(map);
}

TEST(MultiValueHashMap, CanHaveTheSameValueTwice) {
    Map map;
    map.m_bMultiValue = true;
    map.put("a", "1");
    map.put("a", "1");
    EXPECT_EQ(map.m_nCount, 2);
}

// Lifetime of keys and values

std::string trace;

struct TracedKey : std::string {
    using std::string::string;
    TracedKey() = default;
    TracedKey(const TracedKey&) = default;
    TracedKey& operator=(const TracedKey&) = default;
    ~TracedKey() { trace += "key " + *this + ". "; }
};

struct TracedValue {
    TracedValue() = default;
    explicit TracedValue(int number) : m_number(number) {}
    TracedValue(const TracedValue&) = default;
    TracedValue& operator=(const TracedValue&) = default;
    ~TracedValue() { trace += "value " + std::to_string(m_number) + ", "; }
    int m_number = 0;
};

using TracedMap = QKHashMap<TracedKey, TracedValue, INT_HASH<std::string>>;

TEST(HashMap, DestroysTheValueOfARemovedEntryThenItsKey) {
    TracedMap map;
    map.put("a", TracedValue(1));
    map.put("b", TracedValue(2));
    TracedMap::TAssoc* node = map.getAssoc("a");
    trace.clear();
    map.removeAssoc(node);
    EXPECT_EQ(trace, "value 1, key a. ");
}

TEST(HashMap, DestroysEachEntryOnceWhenItIsCleared) {
    TracedMap map;
    map.put("b", TracedValue(2)); // bucket 98
    map.put("a", TracedValue(1)); // bucket 97
    trace.clear();
    map.clear();
    EXPECT_EQ(trace, "value 1, key a. value 2, key b. ");
    map.clear();
    EXPECT_EQ(trace, "value 1, key a. value 2, key b. ");
}

TEST(HashMap, NeverDeletesWhatItsPointersPointTo) {
    int one = 1;
    int other = 2;
    PointerMap map;
    map.put("a", &one);
    map.put("a", &other);
    map.put("b", &one);
    map.removeAssoc(map.getAssoc("a"));
    map.put("c", &other);
    map.clear();
    EXPECT_EQ(one, 1); // and no allocator was handed a pointer to this stack
    EXPECT_EQ(other, 2);
}

// Out of memory

TEST(HashMap, KeepsItsEntriesWhenMemoryRunsOut) {
    Map map;
    for (int number = 0; number < 10; ++number)
        map.put(nthKey(number), "old");
    for (const bool subscript : {false, true}) {
        counted_memory::failAfter(0);
        if (subscript)
            EXPECT_THROW(map["new"], std::bad_alloc);
        else
            EXPECT_THROW(map.put("new", "1"), std::bad_alloc);
        counted_memory::cancelFailure();
        EXPECT_EQ(map.m_nCount, 10);
        EXPECT_EQ(map.getAssoc("new"), nullptr);
        EXPECT_EQ(keysOf(map).size(), 10u);
        map.assertValid();
    }
    map.put("new", "1");
    EXPECT_EQ(valueOf(map, "new"), "1");
}

TEST(HashMap, KeepsItsEntriesWhenMemoryForASecondValueRunsOut) {
    Map map;
    map.m_bMultiValue = true;
    for (int number = 0; number < 10; ++number)
        map.put("a", std::to_string(number));
    counted_memory::failAfter(0);
    EXPECT_THROW(map.put("a", "new"), std::bad_alloc);
    counted_memory::cancelFailure();
    EXPECT_EQ(map.m_nCount, 10);
    EXPECT_EQ(keysOf(map).size(), 10u);
}

TEST(HashMap, StaysEmptyWhenMemoryForTheFirstEntryRunsOut) {
    const long live = counted_memory::live();
    for (const int successes : {0, 1}) { // buckets, block
        Map map;
        counted_memory::failAfter(successes);
        EXPECT_THROW(map.put("a", "1"), std::bad_alloc);
        counted_memory::cancelFailure();
        EXPECT_EQ(map.m_nCount, 0);
        EXPECT_EQ(map.getAssoc("a"), nullptr);
        EXPECT_EQ(map.firstAssoc(), nullptr);
        map.assertValid();
        map.put("a", "2");
        EXPECT_EQ(valueOf(map, "a"), "2");
    }
    EXPECT_EQ(counted_memory::live(), live);
}

// Misuse

std::string assertionIn(const std::string& function, const std::string& expression) {
    return ": QKSTL/QKHashMap\\.h:[0-9]+: .*QKHashMap.*::" + function + "\\(.*: Assertion `" +
           expression + "' failed\\.";
}

TEST(HashMapDeathTest, AbortsWhenItIsResizedWithEntries) {
    Map map;
    map.put("a", "1");
    EXPECT_DEATH(map.init(200, false), assertionIn("init", "m_nCount == 0"));
    EXPECT_DEATH(map.init(100, true), assertionIn("init", "m_nCount == 0"));
    EXPECT_DEATH(map.init(0, true), assertionIn("init", "m_nCount == 0"));
}

TEST(HashMapDeathTest, AbortsWhenItIsResizedToNoBuckets) {
    Map map;
    EXPECT_DEATH(map.init(0, true), assertionIn("init", "nHashSize > 0"));
    EXPECT_DEATH(map.init(0, false), assertionIn("init", "nHashSize > 0"));
}

TEST(HashMapDeathTest, AbortsWithoutBucketsWhereverItIsChecked) {
    for (const bool populated : {false, true}) {
        Map map;
        if (populated)
            map.put("a", "1");
        map.m_nHashTableSize = 0;
        const std::string message = assertionIn("assertValid", "m_nHashTableSize > 0");
        EXPECT_DEATH(map.assertValid(), message);
        EXPECT_DEATH(map.put("a", "1"), message);
        EXPECT_DEATH(map.insert("a", "1"), message);
        EXPECT_DEATH(map["a"], message);
        EXPECT_DEATH(map.clear(), message);
        EXPECT_DEATH(map.init(1, true), message);
        map.m_nHashTableSize = 100;
    }
}

TEST(HashMapDeathTest, AbortsWhenEntriesAreCountedWithoutABucketArray) {
    Map map;
    Map::TAssoc* node = map.newAssoc();
    const std::string message =
        assertionIn("assertValid", "m_nCount == 0 \\|\\| m_pHashTable != __null");
    EXPECT_DEATH(map.assertValid(), message);
    EXPECT_DEATH(map.put("a", "1"), message);
    EXPECT_DEATH(map["a"], message);
    EXPECT_DEATH(map.clear(), message);
    map.freeAssoc(node);
}

TEST(HashMapDeathTest, AbortsWhenItsCountIsNegative) {
    Map map;
    map.m_nCount = -1;
    EXPECT_DEATH(map.newAssoc(), assertionIn("newAssoc", "m_nCount > 0"));
    map.m_nCount = 0;
    Map::TAssoc* node = map.newAssoc();
    map.m_nCount = 0;
    EXPECT_DEATH(map.freeAssoc(node), assertionIn("freeAssoc", "m_nCount >= 0"));
    map.m_nCount = 1;
    map.freeAssoc(node);
}

TEST(HashMapDeathTest, AbortsWithBlocksOfNoNodes) {
    Map map;
    map.m_nBlockSize = 0;
    EXPECT_DEATH(map.put("a", "1"), ": QKSTL/MemoryBlock\\.h:[0-9]+: .*create.*: "
                                    "Assertion `nMax > 0 && cbElement > 0' failed\\.");
}

} // namespace
