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

// Checks the fields "name" (1 to 64 characters) and "number" (1 to 32 characters: digits, + * # ( )
// - and spaces, at least one digit). Removes white space around them first.
Errors checkContact(Contact& contact);

// Names are unique, compared byte by byte. Sorted by name: ASCII letters without regard to case,
// other characters after them by code point. A value type: not thread-safe.
class Directory {
public:
    static constexpr std::size_t kMaxContacts = 2000;
    static constexpr std::size_t kPageSize = 20;

    struct Page {
        std::vector<Contact> rows;
        std::size_t total; // the number of contacts found, on all pages
        long page;         // the number of this page, from 1
        long pages;        // the number of pages, at least 1
    };

    const std::vector<Contact>& contacts() const { return m_contacts; }

    // Returns the contact with this name, or null. Valid until the directory changes.
    const Contact* find(std::string_view name) const;

    // Returns one page of the contacts whose name or number contains `text` (all if it is empty).
    // ASCII letters match without regard to case. A page out of range is replaced by the nearest
    // one.
    Page search(std::string_view text, std::int64_t page) const;

    // Adds a contact. Returns the errors of checkContact(), "duplicate" for the field "name" if the
    // name exists, or "tooMany" if the directory is full.
    Errors add(Contact contact);

    // Adds a contact that passed checkContact(), or replaces the number of the one with its name.
    // Returns false if the directory is full.
    bool put(Contact contact);

    // Returns false if no contact has this name.
    bool remove(std::string_view name);

private:
    std::vector<Contact>::const_iterator placeOf(std::string_view name) const;

    std::vector<Contact> m_contacts; // sorted
};

} // namespace phone

#endif
