#include "multipart.h"

#include "base/ascii.h"
#include "decoding_limits.h"
#include "header_value.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kEndOfHeaders = "\r\n\r\n";

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Joins header lines that are folded: the line end goes, the blank behind it stays (RFC 5322,
// section 2.2.3).
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

// RFC 7578, section 4.2: a name must be given, and "filename*" must not be used. Where it stands
// beside a "filename" it is passed over; alone it would turn a file into a text field unnoticed.
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

// Of a header line `name: value` only the Content-Disposition counts: a type adds nothing for
// those who store bytes, and a transfer encoding must not be used (RFC 7578, section 4.7).
bool readHeaderLine(std::string_view line, cgi::Part& part, bool& hasDisposition) {
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || name.empty() ||
        name.find_first_of(" \t") != std::string_view::npos ||
        line.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        return false;
    if (!base::equalsIgnoringCase(name, "content-disposition"))
        return true;
    if (std::exchange(hasDisposition, true))
        return false;
    return readDisposition(line.substr(colon + 1), part);
}

// `headers` ends with an empty line.
std::optional<cgi::Part> readPartHeaders(std::string headers) {
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
    beginData(false);
}

cgi::MultipartParser::Progress cgi::MultipartParser::push(const char* data, std::size_t size) {
    while (size > 0 && m_state != State::Complete && m_state != State::Bad) {
        std::size_t taken = 1;
        if (m_state == State::Data)
            taken = pushData(data, size);
        else if (m_state == State::Headers)
            pushHeaderByte(*data);
        else
            pushDelimiterByte(*data);
        data += taken;
        size -= taken;
    }
    if (m_state == State::Complete)
        return Progress::Complete;
    return m_state == State::Bad ? Progress::Bad : Progress::WantsMore;
}

// The line end before a delimiter belongs to it (RFC 2046, section 5.1.1). The one before the
// data stands in for it when there are no data, as the beginning of the body does when there is no
// preamble.
void cgi::MultipartParser::beginData(bool inPart) {
    m_state = State::Data;
    m_inPart = inPart;
    m_matched = m_borrowed = kLineEnd.size();
}

// Returns the count of bytes taken; 0 when the byte is to be looked at again. The delimiter's
// first byte is found nowhere else in it, so a match that fails cannot hide the beginning of
// another one: all of it is data, and no byte is looked at a third time.
std::size_t cgi::MultipartParser::pushData(const char* data, std::size_t size) {
    if (m_matched == 0 && *data != m_delimiter.front())
        return pushPlainData(data, size);
    if (*data != m_delimiter[m_matched]) {
        releaseMatched();
        return 0;
    }
    if (++m_matched == m_delimiter.size())
        reachDelimiter();
    return 1;
}

// A carriage return that no line feed follows is found in any image, and ends nothing.
std::size_t cgi::MultipartParser::pushPlainData(const char* data, std::size_t size) {
    const std::string_view rest(data, size);
    std::size_t length = rest.find(m_delimiter[0]);
    while (length < size - 1 && rest[length + 1] != m_delimiter[1])
        length = rest.find(m_delimiter[0], length + 1);
    length = std::min(length, size);
    deliver(data, length);
    return length;
}

void cgi::MultipartParser::releaseMatched() {
    deliver(m_delimiter.data() + m_borrowed, m_matched - m_borrowed);
    m_matched = m_borrowed = 0;
}

void cgi::MultipartParser::deliver(const char* data, std::size_t size) {
    if (m_inPart && size > 0 && !m_sink.partData(data, size))
        fail();
}

void cgi::MultipartParser::reachDelimiter() {
    m_state = State::AfterDelimiter;
    if (m_inPart && !m_sink.endPart())
        fail();
}

// What follows a boundary: "--" ends the body, blanks and a line end begin a part. Anything else
// makes the body bad, since no line of a part may begin with the delimiter, whatever comes behind
// it (RFC 2046, section 5.1.1).
void cgi::MultipartParser::pushDelimiterByte(char byte) {
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
    if (part.has_value() && m_sink.beginPart(std::move(*part)))
        beginData(true);
    else
        fail();
}
