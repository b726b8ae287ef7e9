#include "model/contacts_csv.h"

#include "kit/text.h"
#include "model/contacts_csv_columns.h"
#include "model/trimmed.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <unordered_set>

namespace phone {
namespace {

constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kFormulaStarts = "=+-@";

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

class Planner {
public:
    Planner(const Directory& present, const CsvColumns& columns)
        : m_present(present), m_columns(columns) {}

    void add(const CsvRecord& record);
    ImportPlan take() { return std::move(m_plan); }

private:
    Contact contactIn(const CsvRecord& record) const;
    void place(const CsvRecord& record, Contact contact);
    void refuse(const CsvRecord& record, FieldError error);

    const Directory& m_present;
    const CsvColumns& m_columns;
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
    Contact contact = contactIn(record);
    const Errors errors = checkContact(contact);
    if (!errors.empty()) {
        refuse(record, errors.front());
    } else if (m_names.count(contact.name.str()) != 0) {
        refuse(record, {"name", ErrorCode::duplicate, std::nullopt});
    } else {
        place(record, std::move(contact));
    }
}

// Returns the contact in the record. Numbers for which the file has no column stay as they are.
Contact Planner::contactIn(const CsvRecord& record) const {
    Contact contact;
    contact.name = withoutApostrophe(fieldOf(record, m_columns[0]));
    if (const Contact* old = m_present.find(trimmed(contact.name))) {
        contact = *old;
    }
    for (std::size_t i = 1; i < std::size(kContactFields); ++i) {
        if (m_columns[i] != kNoColumn) {
            contact.*kContactFields[i].text = fieldOf(record, m_columns[i]);
        }
    }
    return contact;
}

void Planner::place(const CsvRecord& record, Contact contact) {
    const Contact* old = m_present.find(contact.name);
    if (old == nullptr &&
        m_present.contacts().size() + m_plan.added.size() >= Directory::kMaxContacts) {
        refuse(record, {"name", ErrorCode::tooMany, Directory::kMaxContacts});
        return;
    }
    m_names.insert(contact.name.str());
    if (old == nullptr) {
        m_plan.added.push_back(std::move(contact));
    } else if (!(*old == contact)) {
        m_plan.changed.push_back({*old, std::move(contact)});
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

ImportPlan planImport(std::string_view text, const Directory& present,
                      const std::optional<CsvColumns>& columns) {
    ImportPlan plan;
    plan.tooLarge = text.size() > kMaxCsvBytes;
    if (plan.tooLarge) {
        return plan;
    }
    if (text.substr(0, 3) == kByteOrderMark) {
        text.remove_prefix(3);
    }
    const CsvLayout layout = csvLayout(text);
    const CsvColumns used = columns.value_or(layout.columns);
    Planner planner(present, used);
    CsvReader reader(text, layout.delimiter);
    bool isHeader = layout.hasHeader;
    while (const std::optional<CsvRecord> record = reader.next()) {
        if (!isHeader) {
            planner.add(*record);
        }
        isHeader = false;
    }
    plan = planner.take();
    plan.columns = used;
    for (const std::string& title : layout.titles) {
        plan.titles.push_back(shown(title));
    }
    return plan;
}

Errors applyImport(const ImportPlan& plan, Directory& directory) {
    Directory result = directory;
    bool room = true;
    for (const Contact& contact : plan.added) {
        room = room && result.put(contact);
    }
    for (const ImportPlan::Change& change : plan.changed) {
        room = room && result.put(change.now);
    }
    if (!room) {
        return {{"contacts", ErrorCode::tooMany, Directory::kMaxContacts}};
    }
    directory = std::move(result);
    return {};
}

std::string contactsCsv(const Directory& directory) {
    std::string text = "name,number,mobile,home\r\n";
    for (const Contact& contact : directory.contacts()) {
        text += quoted((needsApostrophe(contact.name) ? "'" : "") + contact.name.str());
        for (std::size_t i = 1; i < std::size(kContactFields); ++i) {
            text += "," + (contact.*kContactFields[i].text).str();
        }
        text += "\r\n";
    }
    return text;
}

} // namespace phone
