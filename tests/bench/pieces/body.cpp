#include "body.h"

#include <algorithm>

namespace {

constexpr std::size_t kPieceBytes = 8192;

// libfcgi's streams are not const, but a reader never writes.
unsigned char* bytesOf(const std::string& text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
}

} // namespace

pieces::Body::Body(const std::string& text) : m_text(text) {}

FCGX_Stream* pieces::Body::stream() {
    m_delivered = 0;
    m_stream = {};
    m_stream.isReader = 1;
    m_stream.fillBuffProc = fill;
    m_stream.data = this;
    m_stream.rdNext = m_stream.stop = m_stream.stopUnget = bytesOf(m_text);
    return &m_stream;
}

void pieces::Body::fill(FCGX_Stream* stream) {
    auto* self = static_cast<Body*>(stream->data);
    const std::size_t size = std::min(kPieceBytes, self->m_text.size() - self->m_delivered);
    stream->rdNext = stream->stopUnget = bytesOf(self->m_text) + self->m_delivered;
    stream->stop = stream->rdNext + size;
    self->m_delivered += size;
    if (size == 0)
        stream->isClosed = 1;
}

pieces::DiscardedOutput::DiscardedOutput() {
    m_stream.emptyBuffProc = empty;
    m_stream.data = this;
    m_stream.wrNext = m_buffer;
    m_stream.stop = m_buffer + sizeof m_buffer;
}

void pieces::DiscardedOutput::empty(FCGX_Stream* stream, int) {
    stream->wrNext = static_cast<DiscardedOutput*>(stream->data)->m_buffer;
}
