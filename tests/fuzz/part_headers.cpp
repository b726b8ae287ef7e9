// Parses the headers of a part, and the content type of an upload; compared with a model that scans
// them once for each question.
#include "fuzz.h"
#include "multipart.h"

#include <map>
#include <strings.h>
#include <vector>

namespace {

using fuzz::require;
using fuzz::trimmed;
using Parameters = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kMaxHeaders = 16 * 1024;

bool equalIgnoringCase(const std::string& text, const std::string& word) {
    return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

std::string typeOf(const std::string& value) {
    return trimmed(value.substr(0, value.find(';')));
}

// Returns the position after the closing quote of the text quoted from `begin`; npos without one.
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

// Returns the parameters after the first ";" of `value`, with names in lower case, or nothing if
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

// Returns all values of one name.
std::vector<std::string> valuesOf(const Parameters& parameters, const std::string& name) {
    std::vector<std::string> values;
    for (const auto& [itsName, value] : parameters)
        if (itsName == name)
            values.push_back(value);
    return values;
}

std::optional<std::string> expectedBoundary(const std::string& contentType) {
    const auto parameters = parametersOf(contentType);
    if (!equalIgnoringCase(typeOf(contentType), "multipart/form-data") || !parameters.has_value())
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
    if (!equalIgnoringCase(typeOf(disposition), "form-data") || !parameters.has_value())
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

// `headers` has the lines with their CRLFs, without the empty line.
std::optional<cgi::Part> expectedPart(const std::string& headers) {
    if (headers.size() + 2 > kMaxHeaders)
        return std::nullopt;
    std::vector<std::string> dispositions;
    for (const std::string& line : unfoldedLines(headers)) {
        const std::string name = line.substr(0, line.find(':'));
        if (name.size() == line.size() || name.empty() ||
            name.find_first_of(" \t") != std::string::npos ||
            line.find_first_of(std::string("\r\n\0", 3)) != std::string::npos)
            return std::nullopt;
        if (equalIgnoringCase(name, "content-disposition"))
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
    require(first.part().has_value() == expected.has_value(),
            "headers are accepted if the model accepts them");
    if (!expected.has_value())
        return;
    require(first.part()->name == expected->name, "the name of a part is the model's");
    require(first.part()->fileName == expected->fileName, "the file name of a part is the model's");
}

} // namespace

// One line with the content type of the upload, then the headers of a part.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string contentType = fuzz::upToZero(input.line());
    require(cgi::multipartBoundary(fuzz::terminated(contentType).get()) ==
                expectedBoundary(contentType),
            "the boundary is the model's");
    const std::string rest = "\r\n" + fuzz::stretched(input.rest()) + "\r\n\r\n";
    requireSamePart(rest.substr(2, rest.find("\r\n\r\n")));
    return 0;
}
