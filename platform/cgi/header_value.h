// A header value of the form `type; name=value; name="value"` (RFC 2045, section 5.1), as in
// Content-Type and Content-Disposition.
#ifndef HEADER_VALUE_H
#define HEADER_VALUE_H

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace cgi {

// Returns `text` without the blanks and tabs at its ends.
std::string_view withoutBlanksAround(std::string_view text);

// Returns what stands before the first ";", without the blanks around it.
std::string_view headerType(std::string_view header);

struct WantedParameter {
    const char* name;
    std::optional<std::string>* value; // set when the header has the parameter
};

// Reads the wanted parameters of a header and skips all others. Inside quotes, a backslash escapes
// a quote or a backslash and stands for itself before anything else: old browsers send the paths of
// files as C:\dir\file, and no client needs other escapes. Returns false when the parameters are
// malformed, or when a wanted one is given twice, which makes both unreliable (RFC 6266, section
// 4.1).
bool readParameters(std::string_view header, std::initializer_list<WantedParameter> wanted);

} // namespace cgi

#endif
