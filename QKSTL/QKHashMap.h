// A small chained hash map for devices with little memory: a fixed number of buckets, nodes
// carved from blocks and recycled, and no memory kept while the map is empty.
#ifndef QKSTL_QK_HASH_MAP_H
#define QKSTL_QK_HASH_MAP_H

#include "QKSTL/MemoryBlock.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#define QK_HASH_MAP_ASSERT(condition) QKSTL_ASSERT_IN("QKSTL/QKHashMap.h", condition)

// Prepares `nCount` consecutive elements in raw memory: zero bytes, and for a class type an empty
// value in each. `pElements` may be null only when `nCount` is 0 (asserted).
template <class TYPE>
void container_construct(TYPE* pElements, int nCount) {
    QK_HASH_MAP_ASSERT(nCount == 0 || __null != pElements);
    if (nCount == 0)
        return;
    std::memset(static_cast<void*>(pElements), 0, static_cast<std::size_t>(nCount) * sizeof(TYPE));
    if constexpr (std::is_class_v<TYPE>)
        for (int i = 0; i < nCount; ++i)
            new (static_cast<void*>(pElements + i)) TYPE;
}

// Tears down `nCount` consecutive elements, in order. What pointer elements point to stays.
// `pElements` may be null only when `nCount` is 0 (asserted).
template <class TYPE>
void container_destruct(TYPE* pElements, int nCount) {
    QK_HASH_MAP_ASSERT(nCount == 0 || __null != pElements);
    if constexpr (std::is_class_v<TYPE>)
        for (int i = 0; i < nCount; ++i)
            pElements[i].~TYPE();
}

// Whether two strings have the same bytes, zero bytes included. Null is refused (asserted).
template <class TYPE, class ARG_TYPE>
bool container_compare(const TYPE* pElement1, const ARG_TYPE* pElement2) {
    QK_HASH_MAP_ASSERT(__null != pElement1);
    QK_HASH_MAP_ASSERT(__null != pElement2);
    return pElement1->size() == pElement2->size() &&
           std::memcmp(pElement1->data(), pElement2->data(), pElement1->size()) == 0;
}

// The hash of a key, 31 bits wide.
template <class KEY>
struct INT_HASH;

// The hash of a text.
template <>
struct INT_HASH<std::string> {
    // Bytes from the first zero byte on take no part in the hash, though they do in the comparison.
    std::uint32_t operator()(std::string_view key) const {
        std::uint32_t hash = 0;
        for (const char byte : key) {
            if (byte == '\0')
                break;
            hash = hash * 131 + static_cast<unsigned char>(byte);
        }
        return hash & 0x7FFFFFFF;
    }
};

// The map owns its keys and values; what pointer values point to stays the user's.
//   Order     iteration goes from bucket to bucket, and in a bucket from the newest entry to the
//             oldest.
//   Memory    the bucket array comes with the first entry, a block of nodes whenever no free node
//             is left; all of it goes back as soon as the last entry goes, whoever removes it.
//   Failure   misuse fails an assertion that stays active in every build; the allocator's
//             exception leaves the entries as they were.
//   Threads   one at a time; m_nCount alone may be read by others meanwhile, as an atomic word.
// The members are public and in this order for those who were compiled against them; users read
// m_nCount and leave the others alone.
template <class KEY, class VALUE, class FUN>
class QKHashMap {
public:
    // A node: one entry, or a free one.
    struct TAssoc {
        TAssoc* pNext;         // next in its bucket, or next free node
        std::uint32_t nBucket; // its bucket, by which an iteration finds the following one
        KEY key;               // of a free node: none
        VALUE value;           // as the key
    };

    bool m_bMultiValue = false;
    TAssoc** m_pHashTable = nullptr;
    std::uint32_t m_nHashTableSize = 100;
    std::int32_t m_nCount = 0;
    TAssoc* m_pFreeList = nullptr;
    TMemPlex* m_pBlocks = nullptr;
    std::int32_t m_nBlockSize = 10;

    QKHashMap() = default;
    QKHashMap(const QKHashMap&) = delete;
    QKHashMap& operator=(const QKHashMap&) = delete;
    ~QKHashMap() { clear(); }

    // Sets the number of buckets, which must be above 0, and allocates them now if asked. The map
    // must be empty (asserted).
    void init(unsigned int nHashSize, bool bAllocNow) {
        assertValid();
        QK_HASH_MAP_ASSERT(m_nCount == 0);
        QK_HASH_MAP_ASSERT(nHashSize > 0);
        delete[] m_pHashTable;
        m_pHashTable = nullptr;
        if (bAllocNow)
            m_pHashTable = new TAssoc*[nHashSize]();
        m_nHashTableSize = nHashSize;
    }

    // The value of `key`, a new and empty one if there was none. The reference is good until the
    // entry goes.
    VALUE& operator[](KEY key) {
        assertValid();
        const std::uint32_t nBucket = bucketOf(key);
        TAssoc* pAssoc = findInBucket(nBucket, key);
        if (pAssoc == nullptr)
            pAssoc = insertAtHead(nBucket, std::move(key));
        return pAssoc->value;
    }

    // Stores `value` under `key`. An entry that is already there gets the new value; with
    // m_bMultiValue it stays, and the new entry comes right behind it.
    void put(KEY key, VALUE value) {
        assertValid();
        const std::uint32_t nBucket = bucketOf(key);
        TAssoc* pAssoc = findInBucket(nBucket, key);
        if (pAssoc == nullptr)
            pAssoc = insertAtHead(nBucket, std::move(key));
        else if (m_bMultiValue)
            pAssoc = insertBehind(pAssoc, std::move(key));
        pAssoc->value = std::move(value);
    }

    // The same as put().
    void insert(KEY key, VALUE value) { put(std::move(key), std::move(value)); }

    // The first entry of `key`, or null.
    TAssoc* getAssoc(const KEY& key) const { return find(key); }

    // The same for a key that need not be copied into a KEY first.
    template <class VIEW, class = std::enable_if_t<std::is_same_v<VIEW, std::string_view>>>
    TAssoc* getAssoc(VIEW key) const {
        return find(key);
    }

    // Removes an entry of this map and gives back the one that an iteration visits next, or null.
    TAssoc* removeAssoc(TAssoc* pAssoc) {
        TAssoc** ppLink = &m_pHashTable[bucketOf(pAssoc->key)];
        while (*ppLink != pAssoc)
            ppLink = &(*ppLink)->pNext;
        TAssoc* pFollowing = nextAssoc(pAssoc);
        *ppLink = pAssoc->pNext;
        freeAssoc(pAssoc);
        return pFollowing;
    }

    // Iteration: the first entry, and the one after `pAssoc`; null at the end.
    TAssoc* firstAssoc() const {
        if (m_nCount < 1 || m_nHashTableSize == 0)
            return nullptr;
        return firstInBucketsFrom(0);
    }
    TAssoc* nextAssoc(const TAssoc* pAssoc) const {
        if (m_nCount < 1 || m_nHashTableSize == 0)
            return nullptr;
        return followingOf(pAssoc);
    }

    // Removes every entry and releases all memory. The sizes stay as they were set.
    void clear() {
        assertValid();
        if (m_pHashTable != nullptr) {
            for (TAssoc* pAssoc = firstInBucketsFrom(0); pAssoc != nullptr;) {
                TAssoc* pFollowing = followingOf(pAssoc);
                destructElements(pAssoc);
                pAssoc = pFollowing;
            }
            delete[] m_pHashTable;
        }
        m_pFreeList = nullptr;
        m_pHashTable = nullptr;
        setCount(0);
        TMemPlex::release(m_pBlocks);
    }

    // For the map's own operations: a node with an empty key and value that is in no bucket yet,
    // and the way back for a node that is in none any more.
    TAssoc* newAssoc() {
        if (m_pFreeList == nullptr)
            addBlock();
        QK_HASH_MAP_ASSERT(m_pFreeList != __null);
        TAssoc* pAssoc = m_pFreeList;
        m_pFreeList = pAssoc->pNext;
        setCount(m_nCount + 1);
        QK_HASH_MAP_ASSERT(m_nCount > 0);
        container_construct(&pAssoc->key, 1);
        container_construct(&pAssoc->value, 1);
        return pAssoc;
    }
    void freeAssoc(TAssoc* pAssoc) {
        destructElements(pAssoc);
        pAssoc->pNext = m_pFreeList;
        m_pFreeList = pAssoc;
        setCount(m_nCount - 1);
        QK_HASH_MAP_ASSERT(m_nCount >= 0);
        if (m_nCount == 0)
            clear();
    }

    // Asserts what is always so between two operations.
    void assertValid() const {
        QK_HASH_MAP_ASSERT(m_nHashTableSize > 0);
        QK_HASH_MAP_ASSERT(m_nCount == 0 || m_pHashTable != __null);
    }

private:
    void setCount(std::int32_t nCount) { __atomic_store_n(&m_nCount, nCount, __ATOMIC_RELAXED); }

    template <class LIKE_KEY>
    std::uint32_t bucketOf(const LIKE_KEY& key) const {
        return FUN()(key) % m_nHashTableSize;
    }

    template <class LIKE_KEY>
    TAssoc* find(const LIKE_KEY& key) const {
        return m_pHashTable != nullptr ? findInBucket(bucketOf(key), key) : nullptr;
    }

    template <class LIKE_KEY>
    TAssoc* findInBucket(std::uint32_t nBucket, const LIKE_KEY& key) const {
        if (m_pHashTable == nullptr)
            return nullptr;
        TAssoc* pAssoc = m_pHashTable[nBucket];
        while (pAssoc != nullptr && !container_compare(&pAssoc->key, &key))
            pAssoc = pAssoc->pNext;
        return pAssoc;
    }

    TAssoc* firstInBucketsFrom(std::uint32_t nBucket) const {
        TAssoc** ppEnd = m_pHashTable + m_nHashTableSize;
        TAssoc** ppHead = std::find_if(m_pHashTable + nBucket, ppEnd,
                                       [](const TAssoc* pHead) { return pHead != nullptr; });
        return ppHead != ppEnd ? *ppHead : nullptr;
    }

    TAssoc* followingOf(const TAssoc* pAssoc) const {
        return pAssoc->pNext != nullptr ? pAssoc->pNext : firstInBucketsFrom(pAssoc->nBucket + 1);
    }

    TAssoc* insertAtHead(std::uint32_t nBucket, KEY&& key) {
        if (m_pHashTable == nullptr)
            init(m_nHashTableSize, true);
        TAssoc* pAssoc = newAssoc();
        pAssoc->nBucket = nBucket;
        pAssoc->key = std::move(key);
        pAssoc->pNext = m_pHashTable[nBucket];
        m_pHashTable[nBucket] = pAssoc;
        return pAssoc;
    }

    TAssoc* insertBehind(TAssoc* pFirst, KEY&& key) {
        TAssoc* pAssoc = newAssoc();
        pAssoc->nBucket = pFirst->nBucket;
        pAssoc->key = std::move(key);
        pAssoc->pNext = pFirst->pNext;
        pFirst->pNext = pAssoc;
        return pAssoc;
    }

    // Threads the nodes of a new block onto the free list so that they are handed out in
    // ascending order of address.
    void addBlock() {
        static_assert(alignof(TAssoc) <= alignof(TMemPlex), "nodes follow the block's header");
        const auto nNodes = static_cast<unsigned int>(m_nBlockSize);
        TMemPlex* pBlock = TMemPlex::create(m_pBlocks, nNodes, sizeof(TAssoc));
        auto* pNodes = static_cast<TAssoc*>(pBlock->data());
        for (unsigned int i = nNodes; i-- > 0;) {
            pNodes[i].pNext = m_pFreeList;
            m_pFreeList = &pNodes[i];
        }
    }

    static void destructElements(TAssoc* pAssoc) {
        container_destruct(&pAssoc->value, 1);
        container_destruct(&pAssoc->key, 1);
    }
};

#undef QK_HASH_MAP_ASSERT

#endif
