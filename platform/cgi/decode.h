// Percent-decoding, and lists of decoded pairs.
#ifndef DECODE_H
#define DECODE_H

#include "varlist.h"

#include <string>
#include <string_view>

namespace cgi {

// What a "+" stands for.
enum class Plus { Itself, Blank };

// Returns `text` with its escapes decoded; a bad escape stands for itself (URL Standard, section
// 1.3). Throws std::bad_alloc.
std::string percentDecode(std::string_view text, Plus plus);

// Returns the fields of a query string or of an urlencoded form (URL Standard, section 5.1), at
// most `room` of them. Null when `text` is empty or `room` is 0. Throws std::bad_alloc.
CGI_varlist::Owner decodeFields(std::string_view text, std::size_t room);

} // namespace cgi

#endif
