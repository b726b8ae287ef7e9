#include <kit/testing/memory_stream.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace kit::testing {

MemoryInput::MemoryInput(std::string body, std::size_t pieceSize, std::function<void()> atEnd)
    : m_body(std::move(body)), m_pieceSize(pieceSize), m_atEnd(std::move(atEnd)) {
    assert(pieceSize > 0 && "`pieceSize` must not be 0");
    m_stream.isReader = 1;
    m_stream.fillBuffProc = fill;
    m_stream.data = this;
    m_stream.rdNext = m_stream.stop = m_stream.stopUnget =
        reinterpret_cast<unsigned char*>(m_body.data());
}

std::string MemoryInput::unread() const {
    const auto* next = reinterpret_cast<const char*>(m_stream.rdNext);
    return m_body.substr(static_cast<std::size_t>(next - m_body.data()));
}

void MemoryInput::fill(FCGX_Stream* stream) {
    auto* self = static_cast<MemoryInput*>(stream->data);
    const std::size_t size = std::min(self->m_pieceSize, self->m_body.size() - self->m_delivered);
    stream->rdNext = reinterpret_cast<unsigned char*>(self->m_body.data()) + self->m_delivered;
    stream->stop = stream->rdNext + size;
    self->m_delivered += size;
    if (size > 0)
        return;
    stream->isClosed = 1;
    if (const auto atEnd = std::exchange(self->m_atEnd, nullptr))
        atEnd();
}

MemoryOutput::MemoryOutput() {
    m_stream.emptyBuffProc = empty;
    m_stream.data = this;
    m_stream.wrNext = m_buffer;
    m_stream.stop = m_buffer + sizeof m_buffer;
}

std::string MemoryOutput::text() const {
    const unsigned char* end = m_stream.wrNext;
    return m_flushed + std::string(&m_buffer[0], end);
}

void MemoryOutput::breakPipe() {
    m_stream.isClosed = 1;
    m_stream.stop = m_stream.wrNext;
}

void MemoryOutput::empty(FCGX_Stream* stream, int) {
    auto* self = static_cast<MemoryOutput*>(stream->data);
    self->m_flushed.append(self->m_buffer, stream->wrNext);
    stream->wrNext = self->m_buffer;
}

MemoryRequest::MemoryRequest(std::vector<std::string> environment, std::string body,
                             std::size_t pieceSize, std::function<void()> atEnd)
    : m_variables(std::move(environment)), m_in(std::move(body), pieceSize, std::move(atEnd)) {
    for (std::string& variable : m_variables)
        m_environment.push_back(variable.data());
    m_environment.push_back(nullptr);
    m_request.in = m_in.stream();
    m_request.out = m_out.stream();
    m_request.envp = m_environment.data();
    m_request.ipcFd = -1;
}

} // namespace kit::testing
