// Models of the template formats, which escape byte by byte.
#ifndef ESCAPES_H
#define ESCAPES_H

#include <string>

namespace fuzz {

std::string html(const std::string& text);
std::string url(const std::string& text);
std::string js(const std::string& text);

} // namespace fuzz

#endif
