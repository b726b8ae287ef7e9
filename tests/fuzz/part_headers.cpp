// The headers of a part, and the type of a whole upload, beside a reader that goes through them
// once for each question.
#include "fuzz.h"
#include "multipart.h"

#include <map>
#include <strings.h>
#include <vector>

namespace {

using fuzz::require;
using Parameters = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kMostBytes = 16 * 1024;

bool same(const std::string& text, const std::string& word) {
    return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string typeOf(const std::string& value) {
    return trimmed(value.substr(0, value.find(';')));
}

// Where the quoted text that begins at `begin` ends, past its quote; npos when it does not.
std::size_t quotedEnd(const std::string& text, std::size_t begin) {
    for (std::size_t at = begin + 1; at < text.size(); ++at) {
        const std::string two = text.substr(at, 2);
        if (two == "\\\"" || two == "\\\\")
            ++at;
        else if (text[at] == '"')
            return at + 1;
    }
    return std::string::npos;
}

std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string two = text.substr(at, 2);
        if (two == "\\\"" || two == "\\\\")
            ++at;
        result += text[at];
    }
    return result;
}

// The parameters behind the first ";" of `value`, with small letters in their names; nothing when
// they are malformed.
std::optional<Parameters> parametersOf(const std::string& value) {
    Parameters parameters;
    std::size_t at = value.find(';');
    while (at < value.size()) {
        if (value[at] != ';')
            return std::nullopt;
        const std::size_t nameEnd = std::min(value.find_first_of("=;", at + 1), value.size());
        std::string name = trimmed(value.substr(at + 1, nameEnd - at - 1));
        const bool hasValue = nameEnd < value.size() && value[nameEnd] == '=';
        if (hasValue == name.empty())
            return std::nullopt;
        at = nameEnd;
        if (!hasValue)
            continue;
        at = std::min(value.find_first_not_of(" \t", nameEnd + 1), value.size());
        const std::size_t begin = at;
        const bool quoted = value[at] == '"';
        at = quoted ? quotedEnd(value, at) : std::min(value.find(';', at), value.size());
        if (at == std::string::npos)
            return std::nullopt;
        const std::string text = quoted ? unescaped(value.substr(begin + 1, at - begin - 2))
                                        : trimmed(value.substr(begin, at - begin));
        for (char& letter : name)
            letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
        parameters.emplace_back(name, text);
        at = std::min(value.find_first_not_of(" \t", at), value.size());
    }
    return parameters;
}

// The values of one name.
std::vector<std::string> valuesOf(const Parameters& parameters, const std::string& name) {
    std::vector<std::string> values;
    for (const auto& [itsName, value] : parameters)
        if (itsName == name)
            values.push_back(value);
    return values;
}

std::optional<std::string> expectedBoundary(const std::string& contentType) {
    const auto parameters = parametersOf(contentType);
    if (!same(typeOf(contentType), "multipart/form-data") || !parameters.has_value())
        return std::nullopt;
    const auto boundaries = valuesOf(*parameters, "boundary");
    if (boundaries.size() != 1 || boundaries.front().empty())
        return std::nullopt;
    for (const unsigned char byte : boundaries.front())
        if (byte < 0x20 || byte == 0x7f)
            return std::nullopt;
    return boundaries.front();
}

std::optional<cgi::Part> partOf(const std::string& disposition) {
    const auto parameters = parametersOf(disposition);
    if (!same(typeOf(disposition), "form-data") || !parameters.has_value())
        return std::nullopt;
    const auto names = valuesOf(*parameters, "name");
    const auto fileNames = valuesOf(*parameters, "filename");
    const auto extended = valuesOf(*parameters, "filename*");
    if (names.size() != 1 || fileNames.size() > 1 || extended.size() > fileNames.size())
        return std::nullopt;
    cgi::Part part;
    part.name = names.front();
    if (!fileNames.empty())
        part.fileName = fileNames.front();
    return part;
}

std::vector<std::string> unfoldedLines(const std::string& headers) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < headers.size();) {
        const std::size_t end = headers.find("\r\n", at);
        const std::string line = headers.substr(at, end - at);
        if (at > 0 && (line[0] == ' ' || line[0] == '\t'))
            lines.back() += line;
        else
            lines.push_back(line);
        at = end + 2;
    }
    return lines;
}

// `headers` are lines with their ends, without the empty line.
std::optional<cgi::Part> expectedPart(const std::string& headers) {
    if (headers.size() + 2 > kMostBytes)
        return std::nullopt;
    std::vector<std::string> dispositions;
    for (const std::string& line : unfoldedLines(headers)) {
        const std::string name = line.substr(0, line.find(':'));
        if (name.size() == line.size() || name.empty() ||
            name.find_first_of(" \t") != std::string::npos ||
            line.find_first_of(std::string("\r\n\0", 3)) != std::string::npos)
            return std::nullopt;
        if (same(name, "content-disposition"))
            dispositions.push_back(line.substr(name.size() + 1));
    }
    if (dispositions.size() != 1)
        return std::nullopt;
    return partOf(dispositions.front());
}

class FirstPart final : public cgi::PartSink {
public:
    bool beginPart(cgi::Part part) override {
        m_part = std::move(part);
        return true;
    }
    bool partData(const char*, std::size_t) override { return true; }
    bool endPart() override { return true; }

    const std::optional<cgi::Part>& part() const { return m_part; }

private:
    std::optional<cgi::Part> m_part;
};

void requireSamePart(const std::string& headers) {
    FirstPart first;
    cgi::MultipartParser parser("b", first);
    const std::string body = "--b\r\n" + headers + "\r\n";
    parser.push(body.data(), body.size());
    const std::optional<cgi::Part> expected = expectedPart(headers);
    require(first.part().has_value() == expected.has_value(), "the headers are taken, or not");
    if (!expected.has_value())
        return;
    require(first.part()->name == expected->name, "the name is found");
    require(first.part()->fileName == expected->fileName, "the file name is found");
}

} // namespace

// One line with the type of the upload, then the headers of a part.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string contentType = fuzz::upToZero(input.line());
    require(cgi::multipartBoundary(fuzz::terminated(contentType).get()) ==
                expectedBoundary(contentType),
            "the boundary is found");
    const std::string rest = "\r\n" + fuzz::stretched(input.rest()) + "\r\n\r\n";
    requireSamePart(rest.substr(2, rest.find("\r\n\r\n")));
    return 0;
}
