// How much of what strangers send is taken.
#ifndef DECODING_LIMITS_H
#define DECODING_LIMITS_H

#include <cstddef>

namespace cgi {

// The largest page of a telephone has some hundreds of fields. A list is searched from its
// beginning, so its length also bounds the time of a look-up.
constexpr std::size_t kMaxValues = 1000;

// A form is held in memory once as it arrived and once decoded.
constexpr std::size_t kMaxFormBytes = 1024 * 1024;

// A text field of an upload is held in memory until its part ends: enough for a page of notes or a
// pasted certificate chain.
constexpr std::size_t kMaxTextFieldBytes = 64 * 1024;

// Names and text fields of one upload together: no more than a form may hold, or a thousand
// fields of the full size would take 64 MiB.
constexpr std::size_t kMaxUploadTextBytes = kMaxFormBytes;

// The headers of one part: a field name and a path of 4 KiB, every byte of the latter escaped
// in the worst of habits, still leave room for the type.
constexpr std::size_t kMaxPartHeaderBytes = 16 * 1024;

// What is taken from the stream at once. It lies on the stack, which is small in some threads.
constexpr std::size_t kReadBytes = 4 * 1024;

// What goes to the disk at once, however small the pieces that the parser finds.
constexpr std::size_t kWriteBytes = 16 * 1024;

} // namespace cgi

#endif
