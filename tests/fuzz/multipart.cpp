// Parses multipart bodies in pieces of any size; compared with a model that has the whole body.
#include "multipart.h"
#include "fuzz.h"
#include "parts.h"

#include <vector>

namespace {

using fuzz::require;
using Progress = cgi::MultipartParser::Progress;

using fuzz::ReceivedPart;

struct Body {
    std::vector<ReceivedPart> parts;
    Progress progress = Progress::WantsMore;
};

// Calls `pieceSize` for the size of each piece.
template <class PieceSize>
Body parse(const std::string& boundary, const std::string& text, PieceSize pieceSize) {
    Body body;
    fuzz::PartCollector sink(body.parts);
    cgi::MultipartParser parser(boundary, sink);
    for (std::size_t at = 0; at < text.size();) {
        const std::string piece = text.substr(at, pieceSize());
        const auto bytes = std::make_unique<char[]>(piece.size());
        piece.copy(bytes.get(), piece.size());
        body.progress = parser.push(bytes.get(), piece.size());
        at += piece.size();
    }
    return body;
}

// Leaves the headers of a part to the parser itself: they are the subject of part_headers.cpp.
Body parseHeaders(const std::string& headers) {
    return parse("b", "--b\r\n" + headers, [&] { return std::string::npos; });
}

// Returns `data` without an end that could be the beginning of a delimiter.
std::string withoutPartialDelimiter(const std::string& data, const std::string& delimiter) {
    for (std::size_t size = std::min(data.size(), delimiter.size() - 1); size > 0; --size)
        if (data.compare(data.size() - size, size, delimiter, 0, size) == 0)
            return data.substr(0, data.size() - size);
    return data;
}

// The model.
class WholeBody {
public:
    WholeBody(const std::string& boundary, const std::string& text)
        : m_delimiter("\r\n--" + boundary), m_rest("\r\n" + text) {}

    Body parse() {
        while (takeData() && takeDelimiterEnd() && takeHeaders()) {
        }
        return m_body;
    }

private:
    bool end(Progress progress) {
        m_body.progress = progress;
        return false;
    }

    // The rest begins with the CRLF before the data.
    bool takeData() {
        const std::size_t size = m_rest.find(m_delimiter);
        const bool found = size != std::string::npos;
        const std::string data =
            found ? m_rest.substr(0, size) : withoutPartialDelimiter(m_rest, m_delimiter);
        if (!m_body.parts.empty()) {
            m_body.parts.back().data = data.size() > 2 ? data.substr(2) : "";
            m_body.parts.back().isWhole = found;
        }
        if (!found)
            return end(Progress::WantsMore);
        m_rest = m_rest.substr(size + m_delimiter.size());
        return true;
    }

    bool takeDelimiterEnd() {
        if (m_rest.substr(0, 2) == "--")
            return end(Progress::Complete);
        const std::size_t blanks = m_rest.find_first_not_of(" \t");
        if (m_rest == "-" || blanks == std::string::npos || m_rest.substr(blanks) == "\r")
            return end(Progress::WantsMore);
        if (m_rest.compare(blanks, 2, "\r\n") != 0)
            return end(Progress::Bad);
        m_rest = m_rest.substr(blanks + 2);
        return true;
    }

    // Leaves the CRLF of the empty line, which is also the one before the data.
    bool takeHeaders() {
        const std::size_t last = m_rest.find("\r\n\r\n");
        std::size_t size = last == std::string::npos ? m_rest.size() : last + 4;
        if (m_rest.substr(0, 2) == "\r\n")
            size = 2;
        Body part = parseHeaders(m_rest.substr(0, size));
        if (part.progress == Progress::Bad || part.parts.empty())
            return end(part.progress);
        m_body.parts.push_back(part.parts.front());
        m_rest = m_rest.substr(size - 2);
        return true;
    }

    const std::string m_delimiter;
    std::string m_rest;
    Body m_body;
};

void requireSame(const Body& got, const Body& expected) {
    require(got.parts == expected.parts, "the parts are those of the model");
    require(got.progress == expected.progress, "the parser ends like the model");
}

} // namespace

// One line with the content type, one whose bytes are the sizes of the pieces, repeated as needed;
// then the body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto contentType = fuzz::terminated(input.line());
    const std::string sizes = input.line() + "\n";
    const std::optional<std::string> boundary = cgi::multipartBoundary(contentType.get());
    if (!boundary.has_value())
        return 0;
    const std::string text = input.rest();
    std::size_t next = 0;
    const Body body = parse(*boundary, text, [&] {
        return static_cast<std::size_t>(sizes[next++ % sizes.size()] & 63) + 1;
    });
    requireSame(body, WholeBody(*boundary, text).parse());
    requireSame(body, parse(*boundary, text, [] { return std::string::npos; }));
    return 0;
}
