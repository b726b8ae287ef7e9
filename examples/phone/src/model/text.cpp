#include "model/text.h"

#include "kit/text.h"

namespace phone {
std::optional<std::size_t> characterCount(std::string_view text) {
    return kit::isUtf8(text) ? std::optional(kit::characterCount(text)) : std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    const char* const blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace phone
