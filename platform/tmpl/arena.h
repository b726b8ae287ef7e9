// Memory of lists that are filled together and freed together.
//
// A page has a small list for each of its rows. The arenas of one thread fill the same blocks, one
// after the other, so fifty rows take three allocations, and freeing a row only counts the users of
// a block. A block is freed when its last user is: an arena that lives long keeps all of each block
// of which it has a part.
#ifndef ARENA_H
#define ARENA_H

#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

namespace tmpl {

// Frees all its memory at once when it is destroyed. It runs no destructors, so keep only types
// without one in it. Only one thread at a time may use an arena, but it need not be the same one.
class Arena {
public:
    // Bytes of a block that arenas share, with its header: a page of memory less what malloc(3)
    // needs for itself.
    static constexpr std::size_t kBlockBytes = 4096 - 2 * sizeof(std::size_t);
    // Bytes of the largest piece in a shared block. A larger one has a block of its own: else much
    // of a block would stay unused where a large piece does not fit.
    static constexpr std::size_t kMaxShared = kBlockBytes / 4;

    Arena() = default;
    Arena(Arena&& other) noexcept : m_shares(std::exchange(other.m_shares, nullptr)) {}
    ~Arena() {
        if (m_shares != nullptr)
            releaseShares();
    }

    // Returns `size` bytes, aligned for a pointer, which live as long as the arena. Throws
    // std::bad_alloc, which leaves the arena as it was.
    void* take(std::size_t size) {
        size = aligned(size);
        Block* const block = s_filling;
        if (m_shares == nullptr || m_shares->block != block || size > block->room())
            return takeElsewhere(size);
        return block->take(size);
    }

private:
    struct Block {
        explicit Block(std::size_t bytes) : end(reinterpret_cast<char*>(this) + bytes) { clear(); }

        void clear() { free = reinterpret_cast<char*>(this + 1); }
        std::size_t room() const { return static_cast<std::size_t>(end - free); }
        void* take(std::size_t size) { return std::exchange(free, free + size); }

        // The arenas that have a share, and the thread that fills the block.
        std::atomic<std::size_t> users{1};
        // Used by that thread only.
        char* free;
        char* const end;
    };

    // The use of one block by one arena. It is the arena's first piece of that block.
    struct Share {
        Block* block;
        Share* next;
    };

    static constexpr std::size_t aligned(std::size_t size) {
        return (size + alignof(void*) - 1) / alignof(void*) * alignof(void*);
    }
    static Block* makeBlock(std::size_t bytes);
    static void release(Block* block);
    static void releaseAtThreadEnd();

    void releaseShares();
    void* takeElsewhere(std::size_t size);
    void* takeFromNewBlock(std::size_t size);
    void* takeOwnBlock(std::size_t size);

    // The block that this thread fills, if any. Programs load this library when they start, so the
    // fast access to thread-local variables works.
    [[gnu::tls_model("initial-exec")]] static inline thread_local Block* s_filling = nullptr;

    // The block that is filled comes first, unless another thread filled it.
    Share* m_shares = nullptr;
};

// Returns a T whose constructor gets the arena in which it lies. Free it with freeWithArena().
// Throws std::bad_alloc.
template <class T>
T* makeInArena() {
    static_assert(alignof(T) <= alignof(void*));
    Arena arena;
    void* const place = arena.take(sizeof(T));
    return new (place) T(std::move(arena));
}

// Frees an object with all that is in its member `arena`.
template <class T>
void freeWithArena(T* object) {
    const Arena arena = std::move(object->arena);
    object->~T();
}

} // namespace tmpl

#endif
