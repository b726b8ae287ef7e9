// Finds out which column of a file contains which field of a contact.
#ifndef MODEL_CONTACTS_CSV_COLUMNS_H
#define MODEL_CONTACTS_CSV_COLUMNS_H

#include "model/csv_reader.h"
#include "model/directory.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// The column of each field of kContactFields, from 0.
using CsvColumns = std::array<std::size_t, std::size(kContactFields)>;
constexpr std::size_t kNoColumn = CsvRecord::kMaxFields;

struct CsvLayout {
    char delimiter = ',';
    bool hasHeader = false; // whether the first record contains titles
    CsvColumns columns{0, 1, kNoColumn, kNoColumn};
    std::vector<std::string> titles; // the longest of the first records, for a user to recognise
};

// The first record is a header if one of its fields is the title of a contact's field, in one of
// the languages of the pages, and none looks like a number. Without a header, the columns are name
// and number.
CsvLayout csvLayout(std::string_view text);

// Returns the field in this column, or an empty text.
std::string fieldOf(const CsvRecord& record, std::size_t column);

} // namespace phone

#endif
