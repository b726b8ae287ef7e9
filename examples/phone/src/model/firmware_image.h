// Firmware images of this phone.
//
// The format; numbers are little-endian:
//   offset   bytes
//   0        8       "DPFWIMG1"
//   8        16      the model, padded with zero bytes
//   24       16      the version, "1.2.3", padded with zero bytes
//   40       4       the length of the payload, 1 byte to 64 MiB
//   44       …       the payload
//   then     4       CRC-32 (as in gzip) of everything before it
//
// The checksum detects damaged images. It does not prove where an image comes from: anyone can make
// a valid one. A device that writes images to its flash needs a signature.
#ifndef MODEL_FIRMWARE_IMAGE_H
#define MODEL_FIRMWARE_IMAGE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace phone {

constexpr char kPhoneModel[] = "Desk phone";
constexpr std::uint32_t kMaxFirmwarePayload = 64 * 1024 * 1024;

enum class ImageFault {
    none,
    unreadable, // no file, or an error while reading it
    tooShort,   // ends before its payload and checksum are complete
    notAnImage, // wrong magic number or an invalid header
    otherModel,
    damaged, // wrong checksum, or data after it
};

// Returns "none", "unreadable", … as spelled above. Never null.
const char* nameOf(ImageFault fault);

struct ImageCheck {
    ImageFault fault;
    std::string version; // the version of the image if there is no fault
};

// Checks an image, reading the file in small pieces. Accepts older versions, so that a user can go
// back when a new one does not work.
ImageCheck checkImage(const std::string& path);

// Passes the bytes of an image with this payload and version (digits and dots, at most 16) to
// `out`, in pieces of at most 4 KiB. Returns false if a limit is exceeded (`out` was not called
// then) or as soon as `out` returns false.
using ImageOutput = std::function<bool(std::string_view piece)>;
bool writeImage(std::string_view version, std::string_view payload, const ImageOutput& out);

} // namespace phone

#endif
