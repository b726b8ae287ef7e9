// The phone's contacts.
#ifndef MODEL_DIRECTORY_H
#define MODEL_DIRECTORY_H

#include "model/compact_text.h"
#include "model/field_error.h"
#include "model/name_order.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct Contact {
    CompactText name;
    CompactText number; // at work
    CompactText mobile = {};
    CompactText home = {};
};

bool operator==(const Contact& left, const Contact& right);

// The fields of a contact, in the order of forms and files.
struct ContactField {
    const char* name;
    CompactText Contact::*text;
};
constexpr ContactField kContactFields[] = {{"name", &Contact::name},
                                           {"number", &Contact::number},
                                           {"mobile", &Contact::mobile},
                                           {"home", &Contact::home}};

// Returns the fields in which the contact has a number.
std::vector<ContactField> numbersOf(const Contact& contact);

// Checks the fields "name" (1 to 64 characters), "number", "mobile" and "home" (up to 32
// characters: digits, + * # ( ) - and spaces, at least one digit). Removes white space around them
// first. One number is required: without any, "number" has the error.
Errors checkContact(Contact& contact);

// Returns 16 hexadecimal digits that stand for a name in addresses: the container rejects those
// that contain "<", ">" or "script". Names made for it may share a key, so it is for finding only.
std::string keyOf(std::string_view name);

// Names are unique, compared byte by byte. Sorted by name, see sortsBefore(). A value type: not
// thread-safe.
class Directory {
public:
    static constexpr std::size_t kMaxContacts = 2000;
    static constexpr std::size_t kPageSize = 20;

    struct Query {
        std::string text;      // see ContactSearch; empty for all contacts
        std::int64_t page = 1; // a page out of range is replaced by the nearest one
        std::string name = {}; // the page with this contact, if it is found, instead of `page`
        ChineseNames chinese = ChineseNames::last;
    };

    struct Section {
        char name; // see sectionOf()
        long page; // the page on which the section begins
        std::string first;
    };

    struct Page {
        std::vector<Contact> rows;
        std::size_t total = 0;         // the number of contacts found, on all pages
        long page = 1;                 // the number of this page, from 1
        long pages = 1;                // the number of pages, at least 1
        std::vector<Section> sections; // those that are not empty, of all pages
    };

    const std::vector<Contact>& contacts() const { return m_contacts; }

    // Return the contact with this name, or the one whose name has this key, or null. Valid until
    // the directory changes.
    const Contact* find(std::string_view name) const;
    const Contact* findByKey(std::string_view key) const;

    // Returns one page of the contacts found.
    Page search(const Query& query) const;

    // Adds a contact. Returns the errors of checkContact(), "duplicate" for the field "name" if the
    // name exists, or "tooMany" if the directory is full.
    Errors add(Contact contact);

    // Adds a contact that passed checkContact(), or replaces the numbers of the one with its name.
    // Returns false if the directory is full.
    bool put(Contact contact);

    // Replaces the contact with this name, which must exist. Returns the errors of checkContact(),
    // or "duplicate" for the field "name" if another contact has the new name.
    Errors replace(std::string_view name, Contact contact);

    // Returns false if no contact has this name.
    bool remove(std::string_view name);

private:
    std::vector<Contact>::const_iterator placeOf(std::string_view name) const;

    std::vector<Contact> m_contacts; // sorted
};

} // namespace phone

#endif
