// A parser of multipart/form-data bodies (RFC 7578) that gets the bytes as they arrive.
#ifndef MULTIPART_H
#define MULTIPART_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cgi {

// What the headers of a part say. Percent escapes are not decoded.
struct Part {
    std::string name;
    std::optional<std::string> fileName; // of a file part; empty if no file was chosen
};

// Receives the parts of a body in their order. For each part the parser calls beginPart(), then
// partData() any number of times (never for an empty part), then endPart(). When one of them
// returns false, the parser treats the body as bad and calls nothing more.
class PartSink {
public:
    virtual ~PartSink() = default;
    virtual bool beginPart(Part part) = 0;
    // Receives the next bytes of the part's data, at least one.
    virtual bool partData(const char* data, std::size_t size) = 0;
    virtual bool endPart() = 0;
};

// Returns the boundary that a Content-Type header of the type multipart/form-data names. Nothing
// for null, another type, malformed parameters, an empty boundary, or one with a control character.
// RFC 2046 (section 5.1.1) allows 70 characters; longer boundaries are accepted, since the parser
// needs no limit.
std::optional<std::string> multipartBoundary(const char* contentType);

// Stores the boundary and the headers of one part, but none of its data, and examines each byte at
// most twice, whatever the body is.
class MultipartParser {
public:
    enum class Progress { WantsMore, Complete, Bad };

    // `boundary` must not be empty or contain a carriage return; `sink` must outlive the parser.
    MultipartParser(std::string_view boundary, PartSink& sink);

    // Parses the next bytes of the body. Returns Complete when the closing boundary has arrived,
    // whatever follows it. After Complete or Bad all further bytes are ignored.
    Progress push(const char* data, std::size_t size);

private:
    enum class State {
        Data,           // in the data of a part, or in the preamble
        AfterDelimiter, // behind a delimiter
        ClosingDash,    // behind a delimiter and one dash
        Padding,        // in the blanks behind a delimiter
        LineEnd,        // behind the carriage return that ends the delimiter's line
        Headers,        // in the headers of a part
        Complete,
        Bad
    };

    std::size_t pushData(const char* data, std::size_t size);
    std::size_t pushPlainData(const char* data, std::size_t size);
    void pushDelimiterLineByte(char byte);
    void pushHeaderByte(char byte);
    void beginData();
    void deliverMatched();
    void deliver(const char* data, std::size_t size);
    void endData();
    void fail() { m_state = State::Bad; }

    PartSink& m_sink;
    const std::string m_delimiter; // CRLF, two dashes, the boundary
    State m_state = State::Data;
    bool m_inPart = false; // false in the preamble

    // How many bytes of the delimiter the last bytes of the input match.
    std::size_t m_matched = 0;
    // How many of these come before the data and must not be delivered; see beginData().
    std::size_t m_matchedBeforeData = 0;

    std::string m_headers; // of the current part, as far as they have arrived
};

} // namespace cgi

#endif
