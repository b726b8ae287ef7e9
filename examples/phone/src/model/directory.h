// The phone's contacts.
#ifndef MODEL_DIRECTORY_H
#define MODEL_DIRECTORY_H

#include "model/field_error.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct Contact {
    std::string name;
    std::string number;
};

// What is wrong with the fields "name" (1 to 64 characters) and "number" (1 to 32 of digits,
// + * # ( ) - and blanks, one digit at least). White space around them is removed first.
Errors checkContact(Contact& contact);

// Names are unique, byte by byte. Sorted by name: ASCII letters without regard to case, all other
// characters behind them in the order of Unicode. A value; one thread at a time changes it.
class Directory {
public:
    static constexpr std::size_t kMaxContacts = 2000;
    static constexpr std::size_t kPageSize = 20;

    struct Page {
        std::vector<Contact> rows;
        std::size_t total; // how many were found on all pages
        long page;         // which page this is, from 1
        long pages;        // how many there are, 1 at least
    };

    const std::vector<Contact>& contacts() const { return m_contacts; }

    // The contact of that name, or null. Lives until the directory changes.
    const Contact* find(std::string_view name) const;

    // Those that hold `text` in their name or number, all for an empty one; ASCII letters match
    // without regard to case. A page that there is not is the nearest one that there is.
    Page search(std::string_view text, std::int64_t page) const;

    // Adds a contact if checkContact() finds nothing wrong with it, its name is new (otherwise
    // "duplicate" of the field name) and there is room ("tooMany").
    Errors add(Contact contact);

    // Adds a contact that has been checked, or gives the one of that name a new number. False when
    // there is no room.
    bool put(Contact contact);

    // False when there is none of that name.
    bool remove(std::string_view name);

private:
    std::vector<Contact>::const_iterator placeOf(std::string_view name) const;

    std::vector<Contact> m_contacts; // sorted
};

} // namespace phone

#endif
