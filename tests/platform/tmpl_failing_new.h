// Takes the place of operator new in a test program and fails on demand. In a file of its own:
// seen next to the tests, the compiler takes new and free for a wrong pair.
#ifndef TMPL_FAILING_NEW_H
#define TMPL_FAILING_NEW_H

// While it lives only the first `allocations` succeed. One at a time, in programs of one thread.
class MemoryFor {
public:
    explicit MemoryFor(int allocations);
    ~MemoryFor();
    MemoryFor(const MemoryFor&) = delete;
    MemoryFor& operator=(const MemoryFor&) = delete;

    // Whether something was refused.
    bool ranOut() const;
};

#endif
