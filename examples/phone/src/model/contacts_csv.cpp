#include "model/contacts_csv.h"

#include "base/ascii.h"
#include "kit/text.h"
#include "model/trimmed.h"

#include <algorithm>
#include <optional>
#include <unordered_set>

namespace phone {
namespace {

// Larger than any valid field with its escapes; a longer one lacks its closing quote.
constexpr std::size_t kMaxQuotedBytes = 1024;

constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kFormulaStarts = "=+-@";

bool isLineEnd(char character) {
    return character == '\r' || character == '\n';
}

// One record of the file.
struct CsvRecord {
    std::size_t line = 0;
    std::string_view text;
    std::vector<std::string> fields; // the first two fields
    bool wellFormed = true;
};

class CsvReader {
public:
    explicit CsvReader(std::string_view text) : m_text(text) {}

    // Returns the next record, or nothing at the end.
    std::optional<CsvRecord> next();

private:
    bool atEnd() const { return m_at >= m_text.size(); }
    bool atFieldEnd() const { return atEnd() || m_text[m_at] == ',' || isLineEnd(m_text[m_at]); }
    bool readFields(CsvRecord& record);
    bool readField(std::string& field);
    bool readQuoted(std::string& field);
    void skipBlanks();
    void skipLine();
    void takeLineEnd();

    std::string_view m_text;
    std::size_t m_at = 0;
    std::size_t m_line = 1;
};

void CsvReader::skipBlanks() {
    while (!atEnd() && (m_text[m_at] == ' ' || m_text[m_at] == '\t')) {
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
        if (record.fields.size() < 2) {
            record.fields.push_back(std::move(field));
        }
        if (atEnd() || m_text[m_at] != ',') {
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

// Returns `text` in a form that can be shown: up to its first line end, with "?" for each control
// character and, if it is not UTF-8, for each byte beyond ASCII.
std::string shown(std::string_view text) {
    std::string line(
        kit::shortened(text.substr(0, text.find_first_of("\r\n")), ImportPlan::kMaxRefusedText));
    const bool utf8 = kit::isUtf8(line);
    for (char& character : line) {
        const bool ascii = static_cast<unsigned char>(character) < 0x80;
        const bool control = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
        if ((!ascii && !utf8) || control) {
            character = '?';
        }
    }
    return line;
}

// Returns whether a spreadsheet might evaluate the name as a formula, directly or once a leading
// apostrophe is removed.
bool needsApostrophe(std::string_view name) {
    const std::size_t first = name.find_first_not_of('\'');
    return first != std::string_view::npos &&
           std::string_view(kFormulaStarts).find(name[first]) != std::string_view::npos;
}

std::string withoutApostrophe(std::string name) {
    if (!name.empty() && name.front() == '\'' && needsApostrophe(name)) {
        name.erase(0, 1);
    }
    return name;
}

bool isHeader(const CsvRecord& record) {
    if (!record.wellFormed || record.fields.size() != 2) {
        return false;
    }
    std::string line = record.fields[0] + "," + record.fields[1];
    std::transform(line.begin(), line.end(), line.begin(), base::asciiLower);
    return line == "name,number";
}

class Planner {
public:
    explicit Planner(const Directory& present) : m_present(present) {}

    void add(const CsvRecord& record);
    ImportPlan take() { return std::move(m_plan); }

private:
    void place(const CsvRecord& record, Contact contact);
    void refuse(const CsvRecord& record, FieldError error);

    const Directory& m_present;
    std::unordered_set<std::string> m_names; // names accepted from the file
    ImportPlan m_plan;
};

void Planner::refuse(const CsvRecord& record, FieldError error) {
    ++m_plan.refusedCount;
    if (m_plan.refused.size() < ImportPlan::kMaxRefusedRows) {
        m_plan.refused.push_back({record.line, shown(record.text), std::move(error)});
    }
}

void Planner::add(const CsvRecord& record) {
    if (!kit::isUtf8(record.text)) {
        refuse(record, {"line", ErrorCode::notUtf8, std::nullopt});
        return;
    }
    if (!record.wellFormed) {
        refuse(record, {"line", ErrorCode::badCharacters, std::nullopt});
        return;
    }
    Contact contact{withoutApostrophe(record.fields[0]),
                    record.fields.size() > 1 ? record.fields[1] : ""};
    const Errors errors = checkContact(contact);
    if (!errors.empty()) {
        refuse(record, errors.front());
    } else if (m_names.count(contact.name) != 0) {
        refuse(record, {"name", ErrorCode::duplicate, std::nullopt});
    } else {
        place(record, std::move(contact));
    }
}

void Planner::place(const CsvRecord& record, Contact contact) {
    const Contact* old = m_present.find(contact.name);
    if (old == nullptr &&
        m_present.contacts().size() + m_plan.added.size() >= Directory::kMaxContacts) {
        refuse(record, {"name", ErrorCode::tooMany, Directory::kMaxContacts});
        return;
    }
    m_names.insert(contact.name);
    if (old == nullptr) {
        m_plan.added.push_back(std::move(contact));
    } else if (old->number != contact.number) {
        m_plan.changed.push_back({contact.name, old->number, contact.number});
    } else {
        ++m_plan.unchanged;
    }
}

std::string quoted(const std::string& field) {
    if (field.find_first_of("\",") == std::string::npos) {
        return field;
    }
    std::string text = "\"";
    for (char character : field) {
        text.append(character == '"' ? 2 : 1, character);
    }
    return text + "\"";
}

} // namespace

ImportPlan planImport(std::string_view text, const Directory& present) {
    if (text.size() > kMaxCsvBytes) {
        ImportPlan plan;
        plan.tooLarge = true;
        return plan;
    }
    if (text.substr(0, 3) == kByteOrderMark) {
        text.remove_prefix(3);
    }
    Planner planner(present);
    CsvReader reader(text);
    bool first = true;
    while (const std::optional<CsvRecord> record = reader.next()) {
        if (!first || !isHeader(*record)) {
            planner.add(*record);
        }
        first = false;
    }
    return planner.take();
}

Errors applyImport(const ImportPlan& plan, Directory& directory) {
    Directory result = directory;
    bool room = true;
    for (const Contact& contact : plan.added) {
        room = room && result.put(contact);
    }
    for (const ImportPlan::Change& change : plan.changed) {
        room = room && result.put({change.name, change.number});
    }
    if (!room) {
        return {{"contacts", ErrorCode::tooMany, Directory::kMaxContacts}};
    }
    directory = std::move(result);
    return {};
}

std::string contactsCsv(const Directory& directory) {
    std::string text = "name,number\r\n";
    for (const Contact& contact : directory.contacts()) {
        const std::string name = (needsApostrophe(contact.name) ? "'" : "") + contact.name;
        text += quoted(name) + "," + contact.number + "\r\n";
    }
    return text;
}

} // namespace phone
