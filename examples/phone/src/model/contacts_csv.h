// Contacts as comma-separated values (RFC 4180): reads a file, previews its import, and writes one.
#ifndef MODEL_CONTACTS_CSV_H
#define MODEL_CONTACTS_CSV_H

#include "model/contacts_csv_columns.h"
#include "model/directory.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

constexpr std::size_t kMaxCsvBytes = 1024 * 1024;

// What importing a file would do. Bounded: at most as many contacts as a directory holds, and the
// first kMaxRefusedRows of the rejected rows.
struct ImportPlan {
    static constexpr std::size_t kMaxRefusedRows = 100;
    static constexpr std::size_t kMaxRefusedText = 60; // bytes shown of a rejected line

    struct Change {
        Contact old;
        Contact now;
    };
    struct Refused {
        std::size_t line; // the first line of the record, from 1
        std::string text; // the beginning of the record, always valid UTF-8
        FieldError error; // the field is that of a contact, or "line"
    };

    std::vector<Contact> added;
    std::vector<Change> changed;
    std::size_t unchanged = 0;
    std::vector<Refused> refused;
    std::size_t refusedCount = 0;
    bool tooLarge = false; // larger than kMaxCsvBytes; nothing was read
    CsvColumns columns{};
    std::vector<std::string> titles; // of the columns; fewer than two if the file is no list
};

// Reads `text`, one contact per record, see CsvReader; a byte order mark is ignored; the delimiter
// and the header are found, and so are the columns, unless they are given. Other columns are
// ignored, and numbers without a column stay as they are. A rejected record does not affect others:
//   "line"            notUtf8; badCharacters for unbalanced quotes or text after a closing quote
//   "name"            as checkContact(); duplicate if an earlier line has the name; tooMany
//   "number" and so on  as checkContact()
ImportPlan planImport(std::string_view text, const Directory& present,
                      const std::optional<CsvColumns>& columns = std::nullopt);

// Carries out the plan, or nothing: returns "tooMany" for the field "contacts" if contacts added
// since the plan was made leave too little room. Overwrites numbers that changed meanwhile.
Errors applyImport(const ImportPlan& plan, Directory& directory);

// Returns all contacts under the line "name,number,mobile,home", with CR LF as line end, so that
// planImport() reads exactly the same ones. Spreadsheets evaluate fields that begin with = + - @ as
// formulas:
//   names     get a leading apostrophe, which spreadsheets take as "text" and planImport() removes.
//             Names are untrusted, and a formula can call functions and open links.
//   numbers   stay as they are, including +49 30 …: they contain no letters, so a formula made of
//             them cannot call anything, and other programs dial them.
std::string contactsCsv(const Directory& directory);

} // namespace phone

#endif
