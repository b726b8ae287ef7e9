// The order of names in a list, and the letters of its index.
//
// The order is the same in every language of the pages, and needs no locale on the device: symbols,
// digits, Latin letters without regard to case and accents, which is how English and German
// dictionaries sort, other scripts by code point, and Chinese by Pinyin. A language that gives an
// accented letter a place of its own, such as Swedish, is not followed.
#ifndef MODEL_NAME_ORDER_H
#define MODEL_NAME_ORDER_H

#include <string_view>

namespace phone {

// Returns whether `left` comes before `right`. Names that differ only in case or accents are
// ordered by their bytes, so that no two names are equal unless they are the same.
bool sortsBefore(std::string_view left, std::string_view right);

// Where Chinese names are listed: after all others, or under the letter that they are pronounced
// with, before which the Latin names with that letter are listed.
enum class ChineseNames { last, underLetters };

// A section of the index: 'A' to 'Z', or one of these.
constexpr char kSymbolSection = '#';  // names that begin with a digit or symbol; before the letters
constexpr char kOtherSection = '*';   // names in other scripts; after the letters
constexpr char kChineseSection = '='; // Chinese names, unless they are under letters; the last one

// Returns the section of a name.
char sectionOf(std::string_view name, ChineseNames chinese);

// Returns the place of a section among the others: the higher, the later.
int placeOfSection(char section);

} // namespace phone

#endif
