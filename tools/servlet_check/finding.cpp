#include "finding.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <set>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

std::string escaped(char byte) {
    char text[sizeof "\\x00"];
    std::snprintf(text, sizeof text, "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text;
}

const char* severityName(Finding::Severity severity) {
    return severity == Finding::Severity::Problem ? "problem" : "note";
}

} // namespace

void Findings::problem(std::string file, unsigned line, std::string message) {
    m_findings.push_back({std::move(file), line, Finding::Severity::Problem, std::move(message)});
}

void Findings::note(std::string file, unsigned line, std::string message) {
    m_findings.push_back({std::move(file), line, Finding::Severity::Note, std::move(message)});
}

bool Findings::containProblems() const {
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
    constexpr int kOneLine = -1;
    constexpr bool kKeepUtf8 = false;
    std::string result = "[";
    for (const Finding& finding : findings) {
        const nlohmann::ordered_json entry{{"file", finding.file},
                                           {"line", finding.line},
                                           {"severity", severityName(finding.severity)},
                                           {"message", finding.message}};
        result += result.size() > 1 ? ",\n " : "";
        result += entry.dump(kOneLine, ' ', kKeepUtf8, nlohmann::json::error_handler_t::replace);
    }
    return result + "]\n";
}

std::string quoted(const std::string& text) {
    constexpr std::size_t kMaxBytes = 200;
    return '"' + text.substr(0, kMaxBytes) + (text.size() > kMaxBytes ? "...\"" : "\"");
}

std::string printable(const std::string& text) {
    std::string result;
    for (const char byte : text)
        result += isControl(byte) ? escaped(byte) : std::string(1, byte);
    return result;
}
