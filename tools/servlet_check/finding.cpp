#include "finding.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <set>
#include <tuple>
#include <utility>

namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

template <std::size_t size>
std::string formatted(const char (&format)[size], char byte) {
    char text[size + 2];
    std::snprintf(text, sizeof text, format,
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text;
}

bool isContinuation(const std::string& text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80;
}

// How many bytes the character at `at` has; 0 where none begins (RFC 3629, section 4).
std::size_t characterAt(const std::string& text, std::size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80)
        return 1;
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4)
        return 0;
    for (std::size_t i = 1; i < size; ++i)
        if (!isContinuation(text, at + i))
            return 0;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                       (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return wrong ? 0 : size;
}

std::string jsonText(const std::string& text) {
    std::string result = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = characterAt(text, at);
        if (size == 0)
            result += "\\ufffd";
        else if (isControl(text[at]))
            result += formatted("\\u%04x", text[at]);
        else if (text[at] == '"' || text[at] == '\\')
            result += {'\\', text[at]};
        else
            result += text.substr(at, size);
        at += std::max<std::size_t>(size, 1);
    }
    return result + '"';
}

const char* wordOf(Finding::Severity severity) {
    return severity == Finding::Severity::Problem ? "problem" : "note";
}

} // namespace

void Findings::problem(std::string file, unsigned line, std::string message) {
    m_findings.push_back({std::move(file), line, Finding::Severity::Problem, std::move(message)});
}

void Findings::note(std::string file, unsigned line, std::string message) {
    m_findings.push_back({std::move(file), line, Finding::Severity::Note, std::move(message)});
}

bool Findings::holdProblems() const {
    return std::any_of(m_findings.begin(), m_findings.end(), [](const Finding& finding) {
        return finding.severity == Finding::Severity::Problem;
    });
}

std::vector<Finding> Findings::sorted() const {
    std::vector<Finding> result;
    std::set<std::tuple<std::string, unsigned, std::string>> seen;
    for (const Finding& finding : m_findings)
        if (seen.emplace(finding.file, finding.line, finding.message).second)
            result.push_back(finding);
    std::stable_sort(result.begin(), result.end(), [](const Finding& one, const Finding& other) {
        return std::tie(one.file, one.line) < std::tie(other.file, other.line);
    });
    return result;
}

std::string asLines(const std::vector<Finding>& findings) {
    std::string result;
    for (const Finding& finding : findings) {
        const char* word = finding.severity == Finding::Severity::Note ? "note: " : "";
        result += printable(finding.file) + ':' + std::to_string(finding.line) + ": " + word +
                  printable(finding.message) + '\n';
    }
    return result;
}

std::string asJson(const std::vector<Finding>& findings) {
    std::string result = "[";
    for (const Finding& finding : findings) {
        result += result.size() > 1 ? ",\n " : "";
        result += "{\"file\": " + jsonText(finding.file) +
                  ", \"line\": " + std::to_string(finding.line) + ", \"severity\": \"" +
                  wordOf(finding.severity) + "\", \"message\": " + jsonText(finding.message) + '}';
    }
    return result + "]\n";
}

std::string quoted(const std::string& text) {
    constexpr std::size_t kMost = 200;
    return '"' + text.substr(0, kMost) + (text.size() > kMost ? "...\"" : "\"");
}

std::string printable(const std::string& text) {
    std::string result;
    for (const char byte : text)
        result += isControl(byte) ? formatted("\\x%02x", byte) : std::string(1, byte);
    return result;
}
