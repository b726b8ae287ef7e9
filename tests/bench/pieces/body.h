// FastCGI streams of almost no cost.
#ifndef BODY_H
#define BODY_H

#include <fcgiapp.h>

#include <cstddef>
#include <string>

namespace pieces {

// A body that can be read repeatedly, in pieces of libfcgi's size.
class Body {
public:
    // `text` is not copied and must outlive the body.
    explicit Body(const std::string& text);
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    // Returns the stream, rewound to the beginning.
    FCGX_Stream* stream();

private:
    static void fill(FCGX_Stream* stream);

    const std::string& m_text;
    std::size_t m_delivered = 0;
    FCGX_Stream m_stream{};
};

// Discards all output, through a buffer of libfcgi's size.
class DiscardedOutput {
public:
    DiscardedOutput();
    DiscardedOutput(const DiscardedOutput&) = delete;
    DiscardedOutput& operator=(const DiscardedOutput&) = delete;

    FCGX_Stream* stream() { return &m_stream; }

private:
    static void empty(FCGX_Stream* stream, int doClose);

    unsigned char m_buffer[8192];
    FCGX_Stream m_stream{};
};

} // namespace pieces

#endif
