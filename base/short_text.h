// Copies and compares texts that mostly have a few characters: a call of memcpy(3) or memcmp(3)
// costs more than such a copy. Longer texts are passed on to these.
#ifndef BASE_SHORT_TEXT_H
#define BASE_SHORT_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace base {
namespace detail {

template <class Number>
Number load(const char* from) {
    Number number;
    std::memcpy(&number, from, sizeof number);
    return number;
}

// Copies `size` bytes, which must be once to twice the size of Number, as two numbers that overlap.
template <class Number>
void copyAsTwo(char* to, const char* from, std::size_t size) {
    const Number first = load<Number>(from);
    const Number last = load<Number>(from + size - sizeof(Number));
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof last, &last, sizeof last);
}

} // namespace detail

// Copies `text` to `to`, which has room for it and must not overlap it. Returns the end of the
// copy.
inline char* copyShort(char* to, std::string_view text) {
    const std::size_t size = text.size();
    if (size > 16)
        std::memcpy(to, text.data(), size);
    else if (size >= 8)
        detail::copyAsTwo<std::uint64_t>(to, text.data(), size);
    else if (size >= 4)
        detail::copyAsTwo<std::uint32_t>(to, text.data(), size);
    else
        for (std::size_t i = 0; i < size; ++i)
            to[i] = text[i];
    return to + size;
}

// Returns whether two texts are equal.
inline bool equalShort(std::string_view left, std::string_view right) {
    using detail::load;
    const std::size_t size = left.size();
    if (size != right.size())
        return false;
    if (size < 4 || size > 8)
        return left == right;
    const std::size_t last = size - 4;
    return load<std::uint32_t>(left.data()) == load<std::uint32_t>(right.data()) &&
           load<std::uint32_t>(left.data() + last) == load<std::uint32_t>(right.data() + last);
}

// Returns whether `text` begins with `prefix`, which must not contain a zero byte.
inline bool startsWith(const char* text, std::string_view prefix) {
    for (const char character : prefix)
        if (*text++ != character)
            return false;
    return true;
}

} // namespace base

#endif
