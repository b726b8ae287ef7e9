// A parser of multipart/form-data bodies (RFC 7578) that gets the bytes as they arrive.
#ifndef MULTIPART_H
#define MULTIPART_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cgi {

// What the headers of a part say, as they say it: escapes are not decoded.
struct Part {
    std::string name;
    std::optional<std::string> fileName; // of a file part, even an empty one
};

// Told of the parts of a body in their order. An answer of false ends the parsing as a bad body
// does.
class PartSink {
public:
    virtual ~PartSink() = default;
    virtual bool beginPart(Part part) = 0;
    // The next bytes of the part's data; any number of calls, none for a part without data.
    virtual bool partData(const char* data, std::size_t size) = 0;
    virtual bool endPart() = 0;
};

// The boundary that a Content-Type header of the type multipart/form-data names. Nothing when the
// type is another or the header is malformed, or for an empty boundary or one with a control
// character. RFC 2046 (section 5.1.1) allows 70 characters; any length is taken, since the parser
// does not mind.
std::optional<std::string> multipartBoundary(const char* contentType);

// Keeps the boundary, the headers of one part and nothing of its data, and looks at each byte at
// most twice, whatever the body.
class MultipartParser {
public:
    enum class Progress { WantsMore, Complete, Bad };

    // `boundary` must not be empty or hold a carriage return; `sink` must outlive the parser.
    MultipartParser(std::string_view boundary, PartSink& sink);

    // Takes the next bytes of the body. Complete when the closing boundary has arrived, whatever
    // follows it; after that, and after Bad, nothing more is taken.
    Progress push(const char* data, std::size_t size);

private:
    enum class State {
        Data,           // of the preamble or of a part
        AfterDelimiter, // the boundary has been read
        ClosingDash,    // and one dash behind it
        Padding,        // and blanks behind it
        LineEnd,        // and a carriage return
        Headers,
        Complete,
        Bad
    };

    std::size_t pushData(const char* data, std::size_t size);
    std::size_t pushPlainData(const char* data, std::size_t size);
    void releaseMatched();
    void deliver(const char* data, std::size_t size);
    void reachDelimiter();
    void pushDelimiterByte(char byte);
    void pushHeaderByte(char byte);
    void beginData(bool inPart);
    void fail() { m_state = State::Bad; }

    PartSink& m_sink;
    const std::string m_delimiter; // CRLF, two dashes, the boundary
    State m_state = State::Data;
    bool m_inPart = false;
    std::size_t m_matched = 0;  // bytes of the delimiter that the last bytes read are equal to
    std::size_t m_borrowed = 0; // as many of them belong to the line end before the data
    std::string m_headers;
};

} // namespace cgi

#endif
