// Firmware images of this phone.
//
// The format, numbers little-endian:
//   offset   bytes
//   0        8       "DPFWIMG1"
//   8        16      the model, filled up with zero bytes
//   24       16      the version, "1.2.3", filled up with zero bytes
//   40       4       the length of the payload, 1 byte to 64 MiB
//   44       …       the payload
//   then     4       CRC-32 (as in gzip) of everything before it
//
// The checksum tells an image that was damaged on its way from one that was not. It does not tell
// where an image comes from: anybody can make one that passes. A device that really writes images
// to its flash needs a signature.
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
    tooShort,   // ends before its payload and checksum do
    notAnImage, // begins otherwise, or its header makes no sense
    otherModel,
    damaged, // the checksum differs, or something follows it
};

// "none", "unreadable", … as spelled above. Never null.
const char* nameOf(ImageFault fault);

struct ImageCheck {
    ImageFault fault;
    std::string version; // of the image, when there is no fault
};

// Reads the file in small pieces. Older versions are fine: going back is what somebody does whose
// phone does not work with the new one.
ImageCheck checkImage(const std::string& path);

// Hands the bytes of an image with this payload and version (digits and dots, at most 16) to `out`,
// in pieces of at most 4 KiB. False when a limit is broken (nothing was handed out), or `out` gave
// false, which ends it.
using ImageOutput = std::function<bool(std::string_view piece)>;
bool writeImage(std::string_view version, std::string_view payload, const ImageOutput& out);

} // namespace phone

#endif
