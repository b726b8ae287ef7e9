// A small chained hash map for devices with little memory: it has a fixed number of buckets, carves
// nodes from blocks and recycles them, and keeps no memory while it is empty.
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

// Prepares `nCount` consecutive elements in raw memory: fills it with zero bytes, then constructs
// an empty value in each element of class type. `pElements` may be null only if `nCount` is 0
// (asserted).
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

// Destroys `nCount` consecutive elements, in order, but not what pointer elements point to.
// `pElements` may be null only if `nCount` is 0 (asserted).
template <class TYPE>
void container_destruct(TYPE* pElements, int nCount) {
    QK_HASH_MAP_ASSERT(nCount == 0 || __null != pElements);
    if constexpr (std::is_class_v<TYPE>)
        for (int i = 0; i < nCount; ++i)
            pElements[i].~TYPE();
}

// Returns whether two strings have the same bytes, including zero bytes. Neither pointer may be
// null (asserted).
template <class TYPE, class ARG_TYPE>
bool container_compare(const TYPE* pElement1, const ARG_TYPE* pElement2) {
    QK_HASH_MAP_ASSERT(__null != pElement1);
    QK_HASH_MAP_ASSERT(__null != pElement2);
    return pElement1->size() == pElement2->size() &&
           std::memcmp(pElement1->data(), pElement2->data(), pElement1->size()) == 0;
}

// Computes the hash of a key, 31 bits wide.
template <class KEY>
struct INT_HASH;

// Computes the hash of a text.
template <>
struct INT_HASH<std::string> {
    // Returns the hash. It ignores all bytes from the first zero byte on, which container_compare()
    // does not.
    std::uint32_t operator()(std::string_view key) const {
        std::uint32_t hash = 0;
#pragma GCC unroll 4 // every header name and session id is hashed several times per request
        for (const char byte : key) {
            if (byte == '\0')
                break;
            hash = hash * 131 + static_cast<unsigned char>(byte);
        }
        return hash & 0x7FFFFFFF;
    }
};

//   Owner     the map owns its keys and values, but not what pointer values point to.
//   Order     iteration goes from bucket to bucket, and within a bucket from the newest entry to
//             the oldest.
//   Memory    the first entry allocates the bucket array; a block of nodes is allocated whenever no
//             free node is left. Removing the last entry, in any way, frees everything.
//   Failure   misuse fails an assertion that stays active in every build. If the allocator throws,
//             the entries are unchanged.
//   Threads   one at a time; other threads may only read m_nCount meanwhile, as an atomic word.
// The members and their order are part of the binary interface, and therefore public; users only
// read m_nCount.
template <class KEY, class VALUE, class FUN>
class QKHashMap {
public:
    // A node: one entry, or a free one.
    struct TAssoc {
        TAssoc* pNext;         // next in its bucket, or next free node
        std::uint32_t nBucket; // its bucket, so that an iteration can find the next one
        KEY key;               // not constructed in a free node
        VALUE value;           // not constructed in a free node
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

    // Sets the number of buckets, and with `bAllocNow` allocates them now. The map must be empty,
    // and the number above 0 (both asserted).
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

    // Returns the value of `key`, which it adds with an empty value if the map does not contain it.
    // The reference is valid until the entry is removed.
    VALUE& operator[](KEY key) {
        assertValid();
        const std::uint32_t nBucket = bucketOf(key);
        TAssoc* pAssoc = findInBucket(nBucket, key);
        if (pAssoc == nullptr)
            pAssoc = insertAtHead(nBucket, std::move(key));
        return pAssoc->value;
    }

    // Stores `value` under `key`. An entry that is already there gets the new value; with
    // m_bMultiValue it is kept, and the new entry is added right after it.
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

    // Does the same as put().
    void insert(KEY key, VALUE value) { put(std::move(key), std::move(value)); }

    // Returns the first entry of `key`, or null. It is valid until it is removed.
    TAssoc* getAssoc(const KEY& key) const { return find(key); }

    // Does the same without first copying the key into a KEY.
    template <class VIEW, class = std::enable_if_t<std::is_same_v<VIEW, std::string_view>>>
    TAssoc* getAssoc(VIEW key) const {
        return find(key);
    }

    // Removes an entry, which must belong to this map; null, as getAssoc() returns for an absent
    // key, does nothing. Returns the entry that an iteration visits next, or null.
    TAssoc* removeAssoc(TAssoc* pAssoc) {
        if (pAssoc == nullptr)
            return nullptr;
        TAssoc** ppLink = &m_pHashTable[bucketOf(pAssoc->key)];
        while (*ppLink != pAssoc)
            ppLink = &(*ppLink)->pNext;
        TAssoc* pFollowing = nextAssoc(pAssoc);
        *ppLink = pAssoc->pNext;
        freeAssoc(pAssoc);
        return pFollowing;
    }

    // Return the first entry of an iteration, and the one after `pAssoc`; null at the end.
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

    // Removes every entry and frees all memory. The sizes that were set are kept.
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

    // Used by the map's own operations. Return a node with an empty key and value that is in no
    // bucket yet, and recycle a node that has been removed from its bucket.
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

    // Asserts the invariants that hold between two operations.
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

    // Allocates a block and puts its nodes on the free list, so that they are used in ascending
    // order of address.
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
