// Texts of strangers, cut to a length.
#ifndef SHORT_TEXT_H
#define SHORT_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

// The beginning of `text`, of at most `maxBytes`, cut between two UTF-8 characters.
std::string shortText(std::string_view text, std::size_t maxBytes);

} // namespace phone

#endif
