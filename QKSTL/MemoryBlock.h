// A chain of raw memory blocks, from which a container carves its nodes.
#ifndef QKSTL_MEMORY_BLOCK_H
#define QKSTL_MEMORY_BLOCK_H

#include <cstddef>
#include <new>

// The C library's function behind assert(3). glibc's <assert.h> declares it only without NDEBUG,
// that of musl always, with other types.
#ifdef __GLIBC__
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((noreturn));
#else
#include <assert.h>
#endif

// Checks an invariant in every build, even with NDEBUG: a container that was misused must not
// continue. Prints the message of assert(3), with the source as it is included instead of a path of
// the build machine, and aborts. Conditions are spelled with __null because their text is part of
// that message.
#define QKSTL_ASSERT_IN(source, condition)                                                         \
    (static_cast<bool>(condition)                                                                  \
         ? void(0)                                                                                 \
         : __assert_fail(#condition, source, __LINE__, __extension__ __PRETTY_FUNCTION__))

// The header of one block; its elements follow it directly. The newest block is the head of the
// chain and points to the next older one. Blocks are released all together.
class TMemPlex {
public:
    // Allocates a block for `nMax` elements of `cbElement` bytes, puts it at the front of the chain
    // `head` and returns it. The memory is not initialised.
    //   Owner    the owner of `head`, who must free the chain with release().
    //   Failure  asserts that both counts are above 0. If the allocator throws, the chain is
    //            unchanged.
    static TMemPlex* create(TMemPlex*& head, unsigned int nMax, unsigned int cbElement) {
        QKSTL_ASSERT_IN("QKSTL/MemoryBlock.h", nMax > 0 && cbElement > 0);
        std::size_t bytes = 0;
        if (__builtin_mul_overflow(std::size_t{nMax}, std::size_t{cbElement}, &bytes) ||
            __builtin_add_overflow(bytes, sizeof(TMemPlex), &bytes))
            throw std::bad_alloc();
        char* memory = new char[bytes];
        auto* block = new (memory) TMemPlex;
        block->pNext = head;
        head = block;
        return block;
    }

    // Frees every block of the chain and sets `head` to null.
    static void release(TMemPlex*& head) {
        while (head != nullptr) {
            TMemPlex* older = head->pNext;
            delete[] reinterpret_cast<char*>(head);
            head = older;
        }
    }

    // Returns the first byte after the header.
    void* data() { return this + 1; }

private:
    TMemPlex* pNext;
};

#endif
