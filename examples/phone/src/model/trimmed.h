#ifndef MODEL_TRIMMED_H
#define MODEL_TRIMMED_H

#include <string_view>

namespace phone {

// Returns `text` without the blanks, tabs and line ends around it.
inline std::string_view trimmed(std::string_view text) {
    const char* const blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace phone

#endif
