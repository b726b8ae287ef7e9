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

// Without its escapes; a bad one stands for itself.
std::string decoded(const std::string& text);

Pairs pairsOfQuery(const std::string& text);
Pairs pairsOfCookie(const std::string& text);

// Adds what a list may hold, as long as it has room.
void add(Pairs& pairs, const std::string& name, const std::string& value);

// Requires that the list holds these and no others.
void requireSame(CGI_varlist* list, const Pairs& expected);

} // namespace fuzz

#endif
