// Limits on what is accepted from clients.
#ifndef DECODING_LIMITS_H
#define DECODING_LIMITS_H

#include <cstddef>

namespace cgi {

// Values in one list. The largest page of a telephone has some hundreds of fields. A list is
// searched from its beginning, so this also bounds the time of a look-up.
constexpr std::size_t kMaxValues = 1000;

// Bytes of a form, which is held in memory twice: as it arrived and decoded.
constexpr std::size_t kMaxFormBytes = 1024 * 1024;

// Bytes of one text field of an upload, which is held in memory until its part ends: enough for a
// page of notes or a pasted certificate chain.
constexpr std::size_t kMaxTextFieldBytes = 64 * 1024;

// Bytes of all names and text fields of one upload: as many as a form may have. Without this limit
// a thousand fields of the full size would take 64 MiB.
constexpr std::size_t kMaxUploadTextBytes = kMaxFormBytes;

// Bytes of the headers of one part: a field name and a path of 4 KiB fit, with room for the type,
// even if a client escapes every byte of the path.
constexpr std::size_t kMaxPartHeaderBytes = 16 * 1024;

// Bytes read from the stream at once, into a buffer on the stack, which is small in some threads.
constexpr std::size_t kReadBytes = 4 * 1024;

// Bytes written to the disk at once, however small the pieces are that the parser delivers.
constexpr std::size_t kWriteBytes = 16 * 1024;

} // namespace cgi

#endif
