// FastCGI streams and requests in memory, so that a test needs no socket and no web server.
#ifndef KIT_TESTING_MEMORY_STREAM_H
#define KIT_TESTING_MEMORY_STREAM_H

#include <fcgiapp.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kit::testing {

// A request body that arrives in pieces, as libfcgi delivers it.
class MemoryInput {
public:
    // Delivers `body` in pieces of at most `pieceSize` bytes; `pieceSize` must not be 0. Calls
    // `atEnd`, which may be null, once: when more than the body is read.
    explicit MemoryInput(std::string body, std::size_t pieceSize = 8192,
                         std::function<void()> atEnd = nullptr);
    MemoryInput(const MemoryInput&) = delete;
    MemoryInput& operator=(const MemoryInput&) = delete;

    // Returns the stream, which lives as long as this object.
    FCGX_Stream* stream() { return &m_stream; }
    // Returns the part of the body that has not been read.
    std::string unread() const;

private:
    static void fill(FCGX_Stream* stream);

    std::string m_body;
    std::size_t m_pieceSize;
    std::size_t m_delivered = 0;
    std::function<void()> m_atEnd;
    FCGX_Stream m_stream{};
};

// Collects what is written to a stream.
class MemoryOutput {
public:
    MemoryOutput();
    MemoryOutput(const MemoryOutput&) = delete;
    MemoryOutput& operator=(const MemoryOutput&) = delete;

    // Returns the stream, which lives as long as this object.
    FCGX_Stream* stream() { return &m_stream; }
    // Returns everything written so far, flushed or not.
    std::string text() const;
    // Returns what a client would have received by now: everything up to the last flush.
    const std::string& flushedText() const { return m_flushed; }
    // Makes all further writes fail, as after the front server has closed the connection.
    void breakPipe();

private:
    static void empty(FCGX_Stream* stream, int doClose);

    unsigned char m_buffer[512];
    std::string m_flushed;
    FCGX_Stream m_stream{};
};

// One FastCGI request in memory.
class MemoryRequest {
public:
    // `environment` has the CGI variables as "NAME=value". The body arrives as from a MemoryInput.
    explicit MemoryRequest(std::vector<std::string> environment, std::string body = "",
                           std::size_t pieceSize = 8192, std::function<void()> atEnd = nullptr);
    MemoryRequest(const MemoryRequest&) = delete;
    MemoryRequest& operator=(const MemoryRequest&) = delete;

    // Return the request, its body and its response, which live as long as this object.
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
