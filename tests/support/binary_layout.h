// What compiled plug-ins and hosts rely on besides names: an operation's slot in the virtual table
// and a member's offset in an object.
#ifndef BINARY_LAYOUT_H
#define BINARY_LAYOUT_H

#include <cstddef>
#include <cstring>

namespace binary_layout {

// Returns the operation in slot `number`, counted from 0, of the virtual table of `object` (Itanium
// C++ ABI, section 2.5.2). It takes the object as its first argument.
template <class Function>
Function* slot(const void* object, int number) {
    void** table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return reinterpret_cast<Function*>(table[number]);
}

// Calls the operation in slot `number`.
template <class Result, class... Arguments>
Result callSlot(void* object, int number, Arguments... arguments) {
    return slot<Result(void*, Arguments...)>(object, number)(object, arguments...);
}

template <class Member>
Member memberAt(const void* object, std::size_t offset) {
    Member member;
    std::memcpy(&member, static_cast<const char*>(object) + offset, sizeof member);
    return member;
}

} // namespace binary_layout

#endif
