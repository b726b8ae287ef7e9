#include "contacts.h"

#include "short_text.h"

namespace phone {
namespace {

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = text.find_first_of("\r\n");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

std::string_view withoutBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The text of a field whose opening quote has been taken; takes its closing quote too. A doubled
// quote stands for one.
std::string takeQuoted(std::string_view& line) {
    std::string field;
    while (!line.empty()) {
        const char character = line.front();
        line.remove_prefix(1);
        if (character == '"') {
            if (line.empty() || line.front() != '"') {
                break;
            }
            line.remove_prefix(1);
        }
        field += character;
    }
    return field;
}

std::string takeField(std::string_view& line) {
    line = withoutBlanks(line);
    std::string field;
    if (!line.empty() && line.front() == '"') {
        line.remove_prefix(1);
        field = takeQuoted(line);
    }
    const std::size_t comma = line.find(',');
    field += withoutBlanks(line.substr(0, comma));
    line.remove_prefix(comma == std::string_view::npos ? line.size() : comma + 1);
    return shortText(field, kMaxContactField);
}

} // namespace

std::vector<Contact> readContacts(std::string_view text) {
    std::vector<Contact> contacts;
    while (!text.empty() && contacts.size() < kMaxContacts) {
        std::string_view line = withoutBlanks(takeLine(text));
        if (line.empty()) {
            continue;
        }
        std::string name = takeField(line);
        std::string number = takeField(line);
        contacts.push_back({std::move(name), std::move(number)});
    }
    return contacts;
}

} // namespace phone
