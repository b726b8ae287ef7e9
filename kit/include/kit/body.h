// Reading the body of a request piece by piece.
#ifndef KIT_BODY_H
#define KIT_BODY_H

#include "HttpRequest.h"
#include "kit/reading.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kit {

// Reads the body of a request in the memory of one piece, however large the body is:
//
//     kit::BodyReader body = request.bodyReader(kMaxBytes);
//     for (auto piece = body.next(); !piece.empty(); piece = body.next()) { … }
//     if (body.problem() != kit::Problem::None) { … discard what has been read … }
//
//   Forms    the container has read the body of an application/x-www-form-urlencoded POST, and the
//            fields are parameters; see upload.h for multipart/form-data.
//   Threads  one: the thread that serves the request.
class BodyReader {
public:
    // Reads up to `maxBytes`. `request` must outlive the reader.
    BodyReader(HttpRequest& request, std::uint64_t maxBytes)
        : m_request(request), m_maxBytes(maxBytes), m_announced(announcedBytes(request)) {
        if (m_announced > maxBytes) {
            m_problem = Problem::TooLong;
        }
    }
    BodyReader(const BodyReader&) = delete;
    BodyReader& operator=(const BodyReader&) = delete;

    // Returns the next bytes, which stay valid until the next call; an empty text after the last
    // piece, and once there is a problem().
    std::string_view next() {
        if (m_problem != Problem::None) {
            return {};
        }
        const int count = m_request.receiveBlockData(m_piece, sizeof m_piece);
        if (count <= 0) {
            m_problem = m_received < m_announced ? Problem::Incomplete : Problem::None;
            return {};
        }
        const auto size = static_cast<std::size_t>(count);
        m_received += size;
        if (m_received > m_maxBytes) {
            m_problem = Problem::TooLong;
            return {};
        }
        return {m_piece, size};
    }

    // Returns None unless the body is longer than `maxBytes` (TooLong) or ended before its
    // announced length (Incomplete), because the client has gone.
    Problem problem() const { return m_problem; }

private:
    static std::uint64_t announcedBytes(HttpRequest& request) {
        const int announced = request.getContentLength();
        return announced > 0 ? static_cast<std::uint64_t>(announced) : 0;
    }

    HttpRequest& m_request;
    const std::uint64_t m_maxBytes;
    const std::uint64_t m_announced; // 0 if the client sends chunks and does not know the length
    std::uint64_t m_received = 0;
    Problem m_problem = Problem::None;
    char m_piece[4096];
};

} // namespace kit

#endif
