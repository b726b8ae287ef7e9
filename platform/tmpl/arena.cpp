#include "arena.h"

#include <new>

namespace tmpl {

void Arena::releaseShares() {
    while (m_shares != nullptr) {
        // The share lies in the block, so read it first.
        const Share share = *m_shares;
        m_shares = share.next;
        release(share.block);
    }
}

// Returns a block with one user. Throws std::bad_alloc.
Arena::Block* Arena::makeBlock(std::size_t bytes) {
    return new (::operator new(bytes)) Block(bytes);
}

void Arena::release(Block* block) {
    if (block->users.fetch_sub(1, std::memory_order_acq_rel) == 1)
        ::operator delete(block);
}

void Arena::releaseAtThreadEnd() {
    struct End {
        ~End() { release(std::exchange(s_filling, nullptr)); }
    };
    static thread_local const End end;
}

void* Arena::takeElsewhere(std::size_t size) {
    static_assert(sizeof(Block) + sizeof(Share) + kMaxShared <= kBlockBytes);
    if (size > kMaxShared)
        return takeOwnBlock(size);
    Block* const block = s_filling;
    if (block == nullptr)
        return takeFromNewBlock(size);
    if (block->users.load(std::memory_order_acquire) == 1)
        block->clear(); // no arena has a piece of it any more
    if (block->room() < sizeof(Share) + size)
        return takeFromNewBlock(size);
    block->users.fetch_add(1, std::memory_order_relaxed);
    m_shares = new (block->take(sizeof(Share))) Share{block, m_shares};
    return block->take(size);
}

void* Arena::takeFromNewBlock(std::size_t size) {
    Block* const full = s_filling;
    s_filling = makeBlock(kBlockBytes);
    if (full != nullptr)
        release(full);
    else
        releaseAtThreadEnd();
    return takeElsewhere(size);
}

void* Arena::takeOwnBlock(std::size_t size) {
    Block* const block = makeBlock(sizeof(Block) + sizeof(Share) + size);
    Share* const share = new (block->take(sizeof(Share))) Share{block, nullptr};
    if (m_shares == nullptr) {
        m_shares = share;
    } else {
        share->next = m_shares->next;
        m_shares->next = share;
    }
    return block->take(size);
}

} // namespace tmpl
