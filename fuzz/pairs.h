// Names and values as the description of cgi.h has them, one rule after the other and without
// regard to time.
#ifndef PAIRS_H
#define PAIRS_H

#include "cgi.h"

#include <string>
#include <utility>
#include <vector>

namespace fuzz {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs pairsOfQuery(const std::string& text);
Pairs pairsOfCookie(const std::string& text);

// Requires that the list holds these and no others.
void requireSame(CGI_varlist* list, const Pairs& expected);

} // namespace fuzz

#endif
