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

// Returns the block that the thread fills from now on. Throws std::bad_alloc.
inline Arena::Block* Arena::blockWithRoom(std::size_t size) {
    static_assert(sizeof(Block) + sizeof(Share) + kMaxShared <= kBlockBytes);
    Block* const filling = s_filling;
    if (filling != nullptr) {
        if (filling->users.load(std::memory_order_acquire) == 1)
            filling->clear(); // no arena has a piece of it any more
        if (filling->room() >= size)
            return filling;
    }
    s_filling = makeBlock(kBlockBytes);
    if (filling != nullptr)
        release(filling);
    else
        releaseAtThreadEnd();
    return s_filling;
}

void* Arena::takeElsewhere(std::size_t size) {
    if (size > kMaxShared)
        return takeOwnBlock(size);
    Block* const block = blockWithRoom(sizeof(Share) + size);
    block->users.fetch_add(1, std::memory_order_relaxed);
    m_shares = new (block->take(sizeof(Share))) Share{block, m_shares};
    return block->take(size);
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
