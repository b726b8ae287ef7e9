// The text of a file that a spreadsheet has written.
#ifndef MODEL_CSV_TEXT_H
#define MODEL_CSV_TEXT_H

#include <string>
#include <string_view>

namespace phone {

// Returns the file as UTF-8, with the byte order mark of UTF-8 if it has that. With a mark it is
// UTF-8 or UTF-16, which Excel calls "Unicode text". Without one it is UTF-8 if it is well-formed;
// or else what Excel writes by default: GB 18030 in Chinese, Windows-1252 in English and German.
// Bytes that stand for no character become U+FFFD. Where the C library cannot convert GB 18030,
// Windows-1252 is taken.
std::string csvText(std::string_view file, bool isChinese);

// Returns whether the file is no text, such as a workbook or a picture. `text` is from csvText().
bool isBinary(std::string_view text);

} // namespace phone

#endif
