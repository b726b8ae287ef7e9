// FastCGI streams and requests in memory, so that a test needs no socket and no web server.
#ifndef KIT_TESTING_MEMORY_STREAM_H
#define KIT_TESTING_MEMORY_STREAM_H

#include <fcgiapp.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kit::testing {

// A body as the kit delivers it: `body` in pieces of at most `pieceSize` bytes.
class MemoryInput {
public:
    // In pieces of one byte at least.
    explicit MemoryInput(std::string body, std::size_t pieceSize = 8192);
    MemoryInput(const MemoryInput&) = delete;
    MemoryInput& operator=(const MemoryInput&) = delete;

    // Lives as long as this object.
    FCGX_Stream* stream() { return &m_stream; }
    // What nobody has read yet.
    std::string unread() const;

private:
    static void fill(FCGX_Stream* stream);

    std::string m_body;
    std::size_t m_pieceSize;
    std::size_t m_delivered = 0;
    FCGX_Stream m_stream{};
};

// Collects what is written.
class MemoryOutput {
public:
    MemoryOutput();
    MemoryOutput(const MemoryOutput&) = delete;
    MemoryOutput& operator=(const MemoryOutput&) = delete;

    // Lives as long as this object.
    FCGX_Stream* stream() { return &m_stream; }
    // Everything written so far, flushed or not.
    std::string text() const;
    // What a client would have seen by now: everything up to the last flush.
    const std::string& flushedText() const { return m_flushed; }
    // From now on nothing can be written, as when the front server has hung up.
    void breakPipe();

private:
    static void empty(FCGX_Stream* stream, int doClose);

    unsigned char m_buffer[512];
    std::string m_flushed;
    FCGX_Stream m_stream{};
};

// One FastCGI request made by hand. Variables are given as "NAME=value".
class MemoryRequest {
public:
    // The environment, the body, and how it arrives; see MemoryInput.
    explicit MemoryRequest(std::vector<std::string> environment, std::string body = "",
                           std::size_t pieceSize = 8192);
    MemoryRequest(const MemoryRequest&) = delete;
    MemoryRequest& operator=(const MemoryRequest&) = delete;

    // The request, its body and its answer; all live as long as this object.
    FCGX_Request* get() { return &m_request; }
    MemoryInput& in() { return m_in; }
    MemoryOutput& out() { return m_out; }
    const MemoryOutput& out() const { return m_out; }

private:
    std::vector<std::string> m_variables;
    std::vector<char*> m_environment;
    MemoryInput m_in;
    MemoryOutput m_out;
    FCGX_Request m_request{};
};

} // namespace kit::testing

#endif
