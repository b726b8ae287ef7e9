// Replaces operator new in a test program and makes it fail on demand. It is in a separate file,
// because the compiler would warn about new and free that do not match if it saw both in a test.
#ifndef TMPL_FAILING_NEW_H
#define TMPL_FAILING_NEW_H

// While it lives, only the first `allocations` succeed. For programs of one thread, one at a time.
class MemoryFor {
public:
    explicit MemoryFor(int allocations);
    ~MemoryFor();
    MemoryFor(const MemoryFor&) = delete;
    MemoryFor& operator=(const MemoryFor&) = delete;

    // Returns whether an allocation has failed.
    bool ranOut() const;
};

#endif
