// A second, slow and obvious reader of contacts as comma-separated values. It reports each record
// of the file with the text that it would be stored under or the error that refuses it.
#ifndef CONTACTS_MODEL_H
#define CONTACTS_MODEL_H

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace fuzz {

using Numbers = std::array<std::string, 3>;      // at work, mobile, at home
using Contacts = std::map<std::string, Numbers>; // by name

// Where a file has what.
struct Columns {
    char delimiter;
    bool hasHeader;
    std::size_t name;
    std::array<std::size_t, 3> numbers; // 32 for none
};

struct ImportModel {
    // What is to be refused, as "LINE FIELD CODE".
    std::vector<std::string> refused;
    Contacts added;
    Contacts changed;
    std::size_t unchanged = 0;
};

// Returns what importing `text` with these columns into a directory with the contacts `present`
// would do, if a directory holds at most `most` contacts.
ImportModel importOf(const std::string& text, const Columns& columns, const Contacts& present,
                     std::size_t most);

} // namespace fuzz

#endif
