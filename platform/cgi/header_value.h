// A header value of the form `type; name=value; name="value"` (RFC 2045, section 5.1), as
// Content-Type and Content-Disposition have it.
#ifndef HEADER_VALUE_H
#define HEADER_VALUE_H

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace cgi {

std::string_view withoutBlanksAround(std::string_view text);

// What stands before the first ";", without the blanks around it.
std::string_view headerType(std::string_view header);

struct WantedParameter {
    const char* name;
    std::optional<std::string>* value; // nothing when the header does not name it
};

// Reads the wanted parameters of a header; others are skipped. In quotes a backslash escapes
// a quote or a backslash and is itself before anything else: browsers of old send the paths of
// files as C:\dir\file, and no client needs other escapes. False when the parameters are malformed
// or a wanted one is given twice, which says nothing reliable (RFC 6266, section 4.1).
bool readParameters(std::string_view header, std::initializer_list<WantedParameter> wanted);

} // namespace cgi

#endif
