// FastCGI streams that cost next to nothing themselves.
#ifndef BODY_H
#define BODY_H

#include <fcgiapp.h>

#include <cstddef>
#include <string>

namespace pieces {

// A body that can be read again and again, in pieces of the size that the FastCGI kit has.
class Body {
public:
    // `text` is not copied and must outlive the body.
    explicit Body(const std::string& text);
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    // From the beginning.
    FCGX_Stream* stream();

private:
    static void fill(FCGX_Stream* stream);

    const std::string& m_text;
    std::size_t m_delivered = 0;
    FCGX_Stream m_stream{};
};

// Takes what is written, through a buffer of the size that the FastCGI kit has, and drops it.
class DroppedOutput {
public:
    DroppedOutput();
    DroppedOutput(const DroppedOutput&) = delete;
    DroppedOutput& operator=(const DroppedOutput&) = delete;

    FCGX_Stream* stream() { return &m_stream; }

private:
    static void empty(FCGX_Stream* stream, int doClose);

    unsigned char m_buffer[8192];
    FCGX_Stream m_stream{};
};

} // namespace pieces

#endif
