// Percent-decoding and what is built of decoded pairs.
#ifndef DECODE_H
#define DECODE_H

#include "varlist.h"

#include <string>
#include <string_view>

namespace cgi {

enum class Plus { IsItself, IsBlank };

// `text` with its escapes decoded; a bad escape stands for itself (URL Standard, section 1.3).
std::string percentDecode(std::string_view text, Plus plus);

// The fields of a query string or of an urlencoded form (URL Standard, section 5.1), at most
// `room` of them. Null when there can be none. Throws std::bad_alloc.
CGI_varlist::Owner fieldsOf(std::string_view text, std::size_t room);

} // namespace cgi

#endif
