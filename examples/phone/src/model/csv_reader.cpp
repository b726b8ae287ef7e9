#include "model/csv_reader.h"

#include "model/trimmed.h"

#include <algorithm>
#include <iterator>

namespace phone {
namespace {

// Larger than any valid field with its escapes; a longer one lacks its closing quote.
constexpr std::size_t kMaxQuotedBytes = 1024;

constexpr int kLinesForDelimiter = 20;

bool isLineEnd(char character) {
    return character == '\r' || character == '\n';
}

bool hasOutsideQuotes(std::string_view line, char wanted) {
    bool isQuoted = false;
    for (const char character : line) {
        isQuoted = isQuoted != (character == '"');
        if (character == wanted && !isQuoted) {
            return true;
        }
    }
    return false;
}

} // namespace

bool CsvReader::atFieldEnd() const {
    return atEnd() || m_text[m_at] == m_delimiter || isLineEnd(m_text[m_at]);
}

void CsvReader::skipBlanks() {
    while (!atEnd() && m_text[m_at] != m_delimiter &&
           (m_text[m_at] == ' ' || m_text[m_at] == '\t')) {
        ++m_at;
    }
}

void CsvReader::skipLine() {
    m_at = std::min(m_text.find_first_of("\r\n", m_at), m_text.size());
}

void CsvReader::takeLineEnd() {
    if (m_text[m_at] == '\r' && m_text.substr(m_at, 2) == "\r\n") {
        ++m_at;
    }
    ++m_at;
    ++m_line;
}

// Reads up to and including the closing quote.
bool CsvReader::readQuoted(std::string& field) {
    while (!atEnd() && field.size() < kMaxQuotedBytes) {
        const char character = m_text[m_at];
        if (isLineEnd(character)) {
            takeLineEnd();
            field += ' ';
            continue;
        }
        ++m_at;
        if (character != '"') {
            field += character;
        } else if (!atEnd() && m_text[m_at] == '"') {
            ++m_at;
            field += '"';
        } else {
            return true;
        }
    }
    return false;
}

bool CsvReader::readField(std::string& field) {
    skipBlanks();
    if (!atEnd() && m_text[m_at] == '"') {
        ++m_at;
        const bool closed = readQuoted(field);
        skipBlanks();
        return closed && atFieldEnd();
    }
    const std::size_t begin = m_at;
    while (!atFieldEnd()) {
        ++m_at;
    }
    field = std::string(trimmed(m_text.substr(begin, m_at - begin)));
    return field.find('"') == std::string::npos;
}

bool CsvReader::readFields(CsvRecord& record) {
    while (true) {
        std::string field;
        if (!readField(field)) {
            return false;
        }
        if (record.fields.size() < CsvRecord::kMaxFields) {
            record.fields.push_back(std::move(field));
        }
        if (atEnd() || m_text[m_at] != m_delimiter) {
            return true;
        }
        ++m_at;
    }
}

std::optional<CsvRecord> CsvReader::next() {
    skipBlanks();
    while (!atEnd() && isLineEnd(m_text[m_at])) {
        takeLineEnd();
        skipBlanks();
    }
    if (atEnd()) {
        return std::nullopt;
    }
    CsvRecord record;
    record.line = m_line;
    const std::size_t begin = m_at;
    record.wellFormed = readFields(record);
    if (!record.wellFormed) {
        // A missing closing quote must not swallow the following lines.
        m_at = begin;
        m_line = record.line;
        skipLine();
    }
    record.text = m_text.substr(begin, m_at - begin);
    return record;
}

char csvDelimiter(std::string_view text) {
    const char delimiters[] = {'\t', ';', ','};
    int counts[] = {0, 0, 0};
    for (int lines = 0; lines < kLinesForDelimiter && !text.empty();) {
        const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view line = text.substr(0, end);
        if (!trimmed(line).empty()) {
            ++lines;
            for (int i = 0; i < 3; ++i) {
                counts[i] += hasOutsideQuotes(line, delimiters[i]) ? 1 : 0;
            }
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    const int* most = std::max_element(std::begin(counts), std::end(counts));
    return *most > 0 ? delimiters[most - counts] : ',';
}

} // namespace phone
