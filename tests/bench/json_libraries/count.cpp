// Calls the functions of one library and prints what they allocate: count and bytes of reading a
// task, and of writing 20.
#include "libraries.h"

#include <dlfcn.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

unsigned long allocations = 0;
unsigned long allocatedBytes = 0;
bool counting = false;

void count(std::size_t size) {
    if (counting) {
        ++allocations;
        allocatedBytes += size;
    }
}

void printCount() {
    counting = false;
    std::printf("%lu %lu\n", allocations, allocatedBytes);
    allocations = allocatedBytes = 0;
    counting = true;
}

template <typename Function>
Function* find(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

constexpr char kTask[] =
    R"({"title": "Call the front desk", "priority": 7, "done": false, "tags": ["hall", "door"],)"
    R"( "due": {"day": 24, "month": "December"}})";

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): glibc's names.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_realloc(void* old, std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

extern "C" void* malloc(std::size_t size) {
    count(size);
    return __libc_malloc(size);
}
extern "C" void* realloc(void* old, std::size_t size) {
    count(size);
    return __libc_realloc(old, size);
}
extern "C" void* calloc(std::size_t elements, std::size_t size) {
    count(elements * size);
    return __libc_calloc(elements, size);
}

int main(int, char** arguments) {
    void* library = dlopen(arguments[1], RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const auto readTask = find<decltype(::readTask)>(library, "readTask");
    const auto writeTasks = find<decltype(::writeTasks)>(library, "writeTasks");
    if (readTask(kTask, std::strlen(kTask)) != 7 || writeTasks(20) < 1000) {
        return 1;
    }
    counting = true;
    readTask(kTask, std::strlen(kTask));
    printCount();
    writeTasks(20);
    printCount();
    return 0;
}
