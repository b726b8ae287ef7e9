#include "multipart.h"

#include "base/ascii.h"
#include "decoding_limits.h"
#include "header_value.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kEndOfHeaders = "\r\n\r\n";

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Joins folded header lines: removes the line end, keeps the blank behind it (RFC 5322, section
// 2.2.3).
void unfold(std::string& headers) {
    std::size_t size = 0;
    for (std::size_t at = 0; at < headers.size(); ++at) {
        const char behind = headers.compare(at, 2, kLineEnd) == 0 ? headers[at + 2] : '\0';
        if (behind == ' ' || behind == '\t')
            at += kLineEnd.size();
        headers[size++] = headers[at];
    }
    headers.resize(size);
}

// Reads the value of a Content-Disposition header. Returns false when it is malformed or has no
// name (RFC 7578, section 4.2). The parameter "filename*" must not be used; it is ignored beside a
// "filename", but alone it makes the header malformed: else a file would pass for a text field.
bool readDisposition(std::string_view value, cgi::Part& part) {
    std::optional<std::string> name;
    std::optional<std::string> extendedFileName;
    if (!base::equalsIgnoringCase(cgi::headerType(value), "form-data") ||
        !cgi::readParameters(
            value,
            {{"name", &name}, {"filename", &part.fileName}, {"filename*", &extendedFileName}}))
        return false;
    if (!name.has_value() || (extendedFileName.has_value() && !part.fileName.has_value()))
        return false;
    part.name = std::move(*name);
    return true;
}

bool isHeaderName(std::string_view text) {
    return !text.empty() && text.find_first_of(" \t") == std::string_view::npos;
}

// Reads a header line `name: value`. Returns false when it is malformed. Only Content-Disposition
// matters: the type does not change the bytes that are stored, and a transfer encoding must not be
// used (RFC 7578, section 4.7).
bool readHeaderLine(std::string_view line, cgi::Part& part, bool& hasDisposition) {
    constexpr std::string_view kForbidden("\r\n\0", 3);
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || !isHeaderName(name) ||
        line.find_first_of(kForbidden) != std::string_view::npos)
        return false;
    if (!base::equalsIgnoringCase(name, "content-disposition"))
        return true;
    if (std::exchange(hasDisposition, true))
        return false;
    return readDisposition(line.substr(colon + 1), part);
}

// Reads the headers of a part, which must end with an empty line. Returns nothing when they are
// malformed.
std::optional<cgi::Part> readPartHeaders(std::string headers) {
    assert(headers == kLineEnd || endsWith(headers, kEndOfHeaders));
    unfold(headers);
    cgi::Part part;
    bool hasDisposition = false;
    std::string_view rest = headers;
    while (rest != kLineEnd) {
        const std::string_view line = rest.substr(0, rest.find(kLineEnd));
        if (!readHeaderLine(line, part, hasDisposition))
            return std::nullopt;
        rest.remove_prefix(line.size() + kLineEnd.size());
    }
    if (!hasDisposition)
        return std::nullopt;
    return part;
}

bool isControl(char character) {
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
}

} // namespace

std::optional<std::string> cgi::multipartBoundary(const char* contentType) {
    std::optional<std::string> boundary;
    if (contentType == nullptr ||
        !base::equalsIgnoringCase(headerType(contentType), "multipart/form-data") ||
        !readParameters(contentType, {{"boundary", &boundary}}))
        return std::nullopt;
    if (!boundary.has_value() || boundary->empty() ||
        std::any_of(boundary->begin(), boundary->end(), isControl))
        return std::nullopt;
    return boundary;
}

cgi::MultipartParser::MultipartParser(std::string_view boundary, PartSink& sink)
    : m_sink(sink), m_delimiter("\r\n--" + std::string(boundary)) {
    assert(!boundary.empty());
    assert(boundary.find('\r') == std::string_view::npos);
    beginData();
}

cgi::MultipartParser::Progress cgi::MultipartParser::push(const char* data, std::size_t size) {
    while (size > 0 && m_state != State::Complete && m_state != State::Bad) {
        std::size_t taken = 1;
        if (m_state == State::Data)
            taken = pushData(data, size);
        else if (m_state == State::Headers)
            pushHeaderByte(*data);
        else
            pushDelimiterLineByte(*data);
        data += taken;
        size -= taken;
    }
    if (m_state == State::Complete)
        return Progress::Complete;
    return m_state == State::Bad ? Progress::Bad : Progress::WantsMore;
}

// A delimiter begins with the CRLF before it (RFC 2046, section 5.1.1). For an empty part the CRLF
// that ends the headers also begins the delimiter; without a preamble the body begins with the rest
// of the delimiter. So before the first byte of data its CRLF counts as matched.
void cgi::MultipartParser::beginData() {
    m_state = State::Data;
    m_matched = kLineEnd.size();
    m_matchedBeforeData = kLineEnd.size();
}

// Returns the count of bytes used up. It is 0 after a failed match: the byte that did not match is
// examined again, as data. The delimiter's first byte occurs nowhere else in the delimiter, so what
// has matched cannot contain the beginning of another match: all of it is data.
std::size_t cgi::MultipartParser::pushData(const char* data, std::size_t size) {
    if (m_matched == 0 && *data != m_delimiter.front())
        return pushPlainData(data, size);
    if (*data != m_delimiter[m_matched]) {
        deliverMatched();
        return 0;
    }
    if (++m_matched == m_delimiter.size())
        endData();
    return 1;
}

// Delivers the data up to the next CRLF, or up to a carriage return that ends the input. A carriage
// return without a line feed, which any image contains, is plain data.
std::size_t cgi::MultipartParser::pushPlainData(const char* data, std::size_t size) {
    const std::string_view rest(data, size);
    std::size_t length = rest.find(m_delimiter[0]);
    while (length < size - 1 && rest[length + 1] != m_delimiter[1])
        length = rest.find(m_delimiter[0], length + 1);
    length = std::min(length, size);
    deliver(data, length);
    return length;
}

void cgi::MultipartParser::deliverMatched() {
    deliver(m_delimiter.data() + m_matchedBeforeData, m_matched - m_matchedBeforeData);
    m_matched = m_matchedBeforeData = 0;
}

void cgi::MultipartParser::deliver(const char* data, std::size_t size) {
    if (m_inPart && size > 0 && !m_sink.partData(data, size))
        fail();
}

void cgi::MultipartParser::endData() {
    m_state = State::AfterDelimiter;
    if (m_inPart && !m_sink.endPart())
        fail();
}

// Parses the rest of a delimiter's line: "--" ends the body, blanks and a line end begin a part.
// Anything else makes the body bad, since no line of a part may begin with the delimiter, whatever
// follows it (RFC 2046, section 5.1.1).
void cgi::MultipartParser::pushDelimiterLineByte(char byte) {
    if (m_state == State::ClosingDash) {
        m_state = byte == '-' ? State::Complete : State::Bad;
    } else if (m_state == State::LineEnd) {
        m_state = byte == '\n' ? State::Headers : State::Bad;
        m_headers.clear();
    } else if (byte == '-' && m_state == State::AfterDelimiter) {
        m_state = State::ClosingDash;
    } else if (byte == ' ' || byte == '\t') {
        m_state = State::Padding;
    } else {
        m_state = byte == '\r' ? State::LineEnd : State::Bad;
    }
}

void cgi::MultipartParser::pushHeaderByte(char byte) {
    m_headers += byte;
    if (m_headers != kLineEnd && !endsWith(m_headers, kEndOfHeaders)) {
        if (m_headers.size() >= kMaxPartHeaderBytes)
            fail();
        return;
    }
    std::optional<Part> part = readPartHeaders(m_headers);
    if (!part.has_value() || !m_sink.beginPart(std::move(*part)))
        return fail();
    m_inPart = true;
    beginData();
}
