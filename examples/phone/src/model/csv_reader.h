// Reads comma-separated values (RFC 4180), and those with another delimiter.
#ifndef MODEL_CSV_READER_H
#define MODEL_CSV_READER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// One record of the file.
struct CsvRecord {
    // More fields are read, but not kept.
    static constexpr std::size_t kMaxFields = 32;

    std::size_t line = 0; // the first one, from 1
    std::string_view text;
    std::vector<std::string> fields;
    // False for unbalanced quotes or text after a closing quote; the record then is one line.
    bool wellFormed = true;
};

// Lines end with CR LF, LF or CR; a line end inside quotes becomes a space. Blanks around fields
// and lines without content are ignored.
class CsvReader {
public:
    // `text` must outlive the reader and its records.
    CsvReader(std::string_view text, char delimiter) : m_text(text), m_delimiter(delimiter) {}

    // Returns the next record, or nothing at the end.
    std::optional<CsvRecord> next();

private:
    bool atEnd() const { return m_at >= m_text.size(); }
    bool atFieldEnd() const;
    bool readFields(CsvRecord& record);
    bool readField(std::string& field);
    bool readQuoted(std::string& field);
    void skipBlanks();
    void skipLine();
    void takeLineEnd();

    std::string_view m_text;
    char m_delimiter;
    std::size_t m_at = 0;
    std::size_t m_line = 1;
};

// Returns the tab, semicolon or comma that separates fields in most of the first lines. Excel
// writes semicolons where the comma separates decimals, as in German, and tabs as "Unicode text".
char csvDelimiter(std::string_view text);

} // namespace phone

#endif
