#include "contacts_model.h"

#include "utf8_model.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace fuzz {

namespace {

constexpr std::size_t kLongestQuoted = 1023;

struct Row {
    std::size_t line;
    std::string text;
    std::vector<std::string> fields; // empty if the row is malformed
};

bool isIn(char byte, const char* bytes) {
    return byte != '\0' && std::string(bytes).find(byte) != std::string::npos;
}

std::string withoutBlanksAround(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

// Returns how many lines end in the text.
std::size_t lineEnds(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n' || (text[i] == '\r' && text.substr(i, 2) != "\r\n"))
            ++count;
    return count;
}

std::size_t behind(const std::string& text, std::size_t at, const char* bytes) {
    while (at < text.size() && isIn(text[at], bytes))
        ++at;
    return at;
}

std::size_t lineEndAt(const std::string& text, std::size_t at) {
    const std::size_t end = text.find_first_of("\r\n", at);
    return end != std::string::npos ? end : text.size();
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
        text.replace(at, part.size(), by);
        at += by.size();
    }
    return text;
}

// Returns the place of the quote that closes the field whose content begins at `at`.
std::size_t closingQuote(const std::string& text, std::size_t at) {
    std::size_t quote = text.find('"', at);
    while (quote != std::string::npos && text.substr(quote, 2) == "\"\"")
        quote = text.find('"', quote + 2);
    return quote;
}

// Reads the field at `at` and moves `at` behind it. Returns nothing if it is malformed.
std::optional<std::string> fieldAt(const std::string& text, char delimiter, std::size_t& at) {
    const char* blanks = delimiter == '\t' ? " " : " \t";
    const std::string ends = std::string("\r\n") + delimiter;
    at = behind(text, at, blanks);
    if (at == text.size() || text[at] != '"') {
        const std::size_t end = text.find_first_of(ends, at);
        const std::string field = text.substr(at, end == std::string::npos ? end : end - at);
        at += field.size();
        if (field.find('"') != std::string::npos)
            return std::nullopt;
        return withoutBlanksAround(field);
    }
    const std::size_t quote = closingQuote(text, at + 1);
    if (quote == std::string::npos)
        return std::nullopt;
    std::string field = replaced(text.substr(at + 1, quote - at - 1), "\r\n", " ");
    field = replaced(replaced(replaced(field, "\r", " "), "\n", " "), "\"\"", "\"");
    at = behind(text, quote + 1, blanks);
    const bool isEnd = at == text.size() || isIn(text[at], ends.c_str());
    return isEnd && field.size() <= kLongestQuoted ? std::optional<std::string>(field)
                                                   : std::nullopt;
}

// Reads the fields of the row at `at` and moves `at` behind it. Returns no field if one of them is
// malformed.
std::vector<std::string> fieldsAt(const std::string& text, char delimiter, std::size_t& at) {
    std::vector<std::string> fields;
    for (;;) {
        const auto field = fieldAt(text, delimiter, at);
        if (!field)
            return {};
        fields.push_back(*field);
        if (at == text.size() || text[at] != delimiter)
            return fields;
        ++at;
    }
}

std::vector<Row> rowsOf(const std::string& text, char delimiter) {
    const char* between = delimiter == '\t' ? " \r\n" : " \t\r\n";
    std::vector<Row> rows;
    std::size_t at = behind(text, 0, between);
    while (at < text.size()) {
        const std::size_t begin = at;
        std::vector<std::string> fields = fieldsAt(text, delimiter, at);
        if (fields.empty())
            at = lineEndAt(text, begin);
        rows.push_back({lineEnds(text.substr(0, begin)) + 1, text.substr(begin, at - begin),
                        std::move(fields)});
        at = behind(text, at, between);
    }
    return rows;
}

// Removes an apostrophe that the export has put before what looks like a formula.
std::string nameIn(const std::string& field) {
    const std::size_t first = field.find_first_not_of('\'');
    const bool isProtected = first != std::string::npos && first > 0 && isIn(field[first], "=+-@");
    return withoutBlanksAround(isProtected ? field.substr(1) : field);
}

bool hasControl(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0u;
        if (byte < 0x20 || byte == 0x7F || (byte == 0xC2 && next >= 0x80 && next < 0xA0))
            return true;
    }
    return false;
}

std::size_t charactersIn(const std::string& text) {
    std::size_t count = 0;
    for (const char byte : text)
        if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80)
            ++count;
    return count;
}

// Returns what is wrong with a text of 1 to `most` characters, or an empty text.
std::string errorOf(const std::string& text, std::size_t most) {
    if (hasControl(text))
        return "badCharacters";
    if (text.empty())
        return "required";
    return charactersIn(text) > most ? "tooLong" : "";
}

std::string errorOfNumber(const std::string& number) {
    if (number.empty())
        return "";
    const std::string error = errorOf(number, 32);
    if (!error.empty())
        return error;
    const bool isAllowed = number.find_first_not_of("0123456789+*#()- ") == std::string::npos;
    const bool hasDigit = number.find_first_of("0123456789") != std::string::npos;
    return isAllowed && hasDigit ? "" : "badCharacters";
}

// Returns what is wrong with a row, or an empty text.
std::string errorOf(const Row& row, const std::string& name, const Numbers& numbers) {
    const char* const names[] = {"number ", "mobile ", "home "};
    if (!isUtf8Text(row.text))
        return "line notUtf8";
    if (row.fields.empty())
        return "line badCharacters";
    if (const std::string error = errorOf(name, 64); !error.empty())
        return "name " + error;
    for (std::size_t i = 0; i < numbers.size(); ++i)
        if (const std::string error = errorOfNumber(numbers[i]); !error.empty())
            return names[i] + error;
    return numbers == Numbers() ? "number required" : "";
}

std::string fieldOf(const Row& row, std::size_t column) {
    return column < std::min<std::size_t>(row.fields.size(), 32) ? row.fields[column] : "";
}

void place(ImportModel& model, const Row& row, const Columns& columns, const Contacts& present,
           std::size_t most) {
    const std::string name = nameIn(fieldOf(row, columns.name));
    const auto old = present.find(name);
    Numbers numbers = old == present.end() ? Numbers() : old->second;
    for (std::size_t i = 0; i < numbers.size(); ++i)
        if (columns.numbers[i] < 32)
            numbers[i] = withoutBlanksAround(fieldOf(row, columns.numbers[i]));
    std::string error = errorOf(row, name, numbers);
    const bool isSeen = model.added.count(name) + model.changed.count(name) != 0;
    if (error.empty() && isSeen)
        error = "name duplicate";
    else if (error.empty() && old == present.end() && present.size() + model.added.size() >= most)
        error = "name tooMany";
    if (!error.empty())
        model.refused.push_back(std::to_string(row.line) + " " + error);
    else if (old == present.end())
        model.added[name] = numbers;
    else
        model.changed[name] = numbers;
}

} // namespace

ImportModel importOf(const std::string& text, const Columns& columns, const Contacts& present,
                     std::size_t most) {
    const std::string mark = "\xEF\xBB\xBF";
    const bool isMarked = text.substr(0, mark.size()) == mark;
    std::vector<Row> rows = rowsOf(isMarked ? text.substr(mark.size()) : text, columns.delimiter);
    if (columns.hasHeader && !rows.empty())
        rows.erase(rows.begin());
    ImportModel model;
    for (const Row& row : rows)
        place(model, row, columns, present, most);
    // Numbers that stay are no change.
    for (auto change = model.changed.begin(); change != model.changed.end();) {
        const bool isSame = present.at(change->first) == change->second;
        model.unchanged += isSame ? 1 : 0;
        change = isSame ? model.changed.erase(change) : std::next(change);
    }
    return model;
}

} // namespace fuzz
