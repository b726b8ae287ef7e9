// Contacts as comma-separated lines.
#ifndef CONTACTS_H
#define CONTACTS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct Contact {
    std::string name;
    std::string number;
};

// The contacts that are read from one text, and the bytes that are kept of a field: a preview
// shows the beginning of a list, whatever somebody pastes.
constexpr std::size_t kMaxContacts = 100;
constexpr std::size_t kMaxContactField = 64;

// One contact a line, name and number separated by a comma, either in double quotes if it must
// hold a comma (RFC 4180, section 2; a quoted field ends with its line). Further fields are left
// out, and so are empty lines, and all that is beyond the limits.
std::vector<Contact> readContacts(std::string_view text);

} // namespace phone

#endif
