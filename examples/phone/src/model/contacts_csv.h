// Contacts as comma-separated values (RFC 4180): reading a file, showing what it would change, and
// writing one.
#ifndef MODEL_CONTACTS_CSV_H
#define MODEL_CONTACTS_CSV_H

#include "model/directory.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

constexpr std::size_t kMaxCsvBytes = 1024 * 1024;

// What the import of a file will do. The rows are bounded: no more contacts than a directory
// holds, and the first kMaxRefusedRows of those that are refused.
struct ImportPlan {
    static constexpr std::size_t kMaxRefusedRows = 100;
    static constexpr std::size_t kMaxRefusedText = 60; // bytes that are shown of a refused line

    struct Change {
        std::string name;
        std::string oldNumber;
        std::string number;
    };
    struct Refused {
        std::size_t line; // where it begins, from 1
        std::string text; // its beginning, as UTF-8 whatever the file holds
        FieldError error; // of the field "name" or "number", or of the field "line"
    };

    std::vector<Contact> added;
    std::vector<Change> changed;
    std::size_t unchanged = 0;
    std::vector<Refused> refused;
    std::size_t refusedCount = 0;
    bool tooLarge = false; // over kMaxCsvBytes; nothing was read
};

// Reads `text`, a contact a line: name, number; further fields do not count, nor do empty lines, a
// byte order mark, and the line "name,number" when it is the first. Lines end with CR LF, LF or CR;
// inside quotes a line end is read as a blank. A line that is refused costs only itself:
//   of "line"     notUtf8; badCharacters for quotes that do not pair, or text behind a closed quote
//   of "name"     as checkContact(); duplicate for a name that an earlier line has; tooMany
//   of "number"   as checkContact()
ImportPlan planImport(std::string_view text, const Directory& present);

// Does what the plan says, or nothing at all: "tooMany" of the field "contacts" when the directory
// got fuller since the plan was made. Numbers that changed since then are overwritten.
Errors applyImport(const ImportPlan& plan, Directory& directory);

// All contacts under the line "name,number", line ends CR LF, to be read back exactly by
// planImport(). Spreadsheets take a field that begins with = + - @ for a formula:
//   names     get an apostrophe before them, which spreadsheets take for "text", and which is
//             removed again when they are read. A name is whatever a stranger typed, and a formula
//             can call functions and open links.
//   numbers   stay as they are, +49 30 … too: they hold no letter, so no formula made of them can
//             call anything, and other programs that read the file want to dial them.
std::string contactsCsv(const Directory& directory);

} // namespace phone

#endif
