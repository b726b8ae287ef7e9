// Compares names by a number first: most names differ in it, and comparing characters costs more.
#ifndef BASE_NAME_KEY_H
#define BASE_NAME_KEY_H

#include <cstdint>
#include <cstring>
#include <string_view>

namespace base {

// Returns the same number for equal names. Different names mostly have different numbers: the
// length and the last four characters go in, and these differ in "row1" and "row12" as well as in
// "name" and "date". So compare the characters, too, when the numbers are equal.
inline std::uint32_t nameKey(std::string_view name) {
    std::uint32_t last = 0;
    if (name.size() >= sizeof last) {
        std::memcpy(&last, name.data() + name.size() - sizeof last, sizeof last);
    } else {
        for (const char character : name)
            last = last << 8 | static_cast<unsigned char>(character);
    }
    return last + static_cast<std::uint32_t>(name.size());
}

} // namespace base

#endif
