// A model of the decoders in cgi.h, which applies one rule after the other and need not be fast.
#ifndef PAIRS_H
#define PAIRS_H

#include "cgi.h"

#include <string>
#include <utility>
#include <vector>

namespace fuzz {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Decodes the escapes; a malformed one stays as it is.
std::string decoded(const std::string& text);

Pairs pairsOfQuery(const std::string& text);
Pairs pairsOfCookie(const std::string& text);

// Adds the pair if a list may contain it and has room.
void add(Pairs& pairs, const std::string& name, const std::string& value);

// Requires that the list contains these pairs and no others.
void requireSame(CGI_varlist* list, const Pairs& expected);

} // namespace fuzz

#endif
