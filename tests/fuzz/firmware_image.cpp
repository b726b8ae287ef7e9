// Checks firmware images from arbitrary bytes, and writes images and checks them; compared with a
// model that computes the checksum bit by bit.
#include "fuzz.h"

#include "model/firmware_image.h"

#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using fuzz::require;
using phone::ImageCheck;
using phone::ImageFault;

constexpr std::size_t kTextSize = 16;
constexpr std::size_t kHeaderSize = 44;
constexpr std::size_t kChecksumSize = 4;

class MemoryFile {
public:
    MemoryFile() : m_file(memfd_create("firmware.img", MFD_CLOEXEC)) {
        m_path = "/proc/self/fd/" + std::to_string(m_file);
    }

    const std::string& write(const std::string& text) {
        const bool written =
            ftruncate(m_file, 0) == 0 &&
            pwrite(m_file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
        require(written, "the test can write its file");
        return m_path;
    }

private:
    const int m_file; // until the process ends
    std::string m_path;
};

// CRC-32 (RFC 1952, section 8).
std::uint32_t checksumOf(const std::string& bytes) {
    constexpr std::uint32_t kPolynomial = 0xEDB88320;
    std::uint32_t checksum = 0xFFFFFFFF;
    for (const char byte : bytes) {
        checksum ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            checksum = (checksum & 1) != 0 ? checksum >> 1 ^ kPolynomial : checksum >> 1;
    }
    return ~checksum;
}

std::uint32_t numberAt(const std::string& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number += std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    return number;
}

std::string bytesOf(std::uint32_t number) {
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += static_cast<char>(number >> (8 * i) & 0xFF);
    return bytes;
}

std::string padded(std::string text) {
    text.resize(kTextSize);
    return text;
}

bool isVersion(const std::string& text) {
    return !text.empty() && text.size() <= kTextSize &&
           text.find_first_not_of("0123456789.") == std::string::npos;
}

ImageCheck checkOf(const std::string& image) {
    const std::string magic = "DPFWIMG1";
    if (image.substr(0, magic.size()) != magic.substr(0, image.size()))
        return {ImageFault::notAnImage, ""};
    if (image.size() < kHeaderSize)
        return {ImageFault::tooShort, ""};
    const std::string model = fuzz::upToZero(image.substr(8, kTextSize));
    const std::string version = fuzz::upToZero(image.substr(24, kTextSize));
    const std::size_t length = numberAt(image, 40);
    if (length < 1 || length > 67108864 || !isVersion(version))
        return {ImageFault::notAnImage, ""};
    if (model != "Desk phone")
        return {ImageFault::otherModel, ""};
    const std::size_t size = kHeaderSize + length + kChecksumSize;
    if (image.size() < size)
        return {ImageFault::tooShort, ""};
    const std::size_t checked = size - kChecksumSize;
    if (image.size() > size || numberAt(image, checked) != checksumOf(image.substr(0, checked)))
        return {ImageFault::damaged, ""};
    return {ImageFault::none, version};
}

void requireCheck(const std::string& image) {
    static MemoryFile file;
    const ImageCheck check = phone::checkImage(file.write(image));
    const ImageCheck expected = checkOf(image);
    require(check.fault == expected.fault, "an image is accepted or refused like in the model");
    require(check.version == expected.version, "only a good image has a version");
}

// Writes an image, with an output that takes `limit` bytes, and checks it.
void requireImage(const std::string& version, const std::string& payload, std::size_t limit) {
    constexpr std::size_t kMaxPiece = 4096;
    std::string image;
    const bool isWritten = phone::writeImage(version, payload, [&](std::string_view piece) {
        require(piece.size() <= kMaxPiece, "an image is written in small pieces");
        require(image.size() <= limit, "nothing is written after a failure");
        image += piece;
        return image.size() <= limit;
    });
    const std::string content = "DPFWIMG1" + padded("Desk phone") + padded(version) +
                                bytesOf(static_cast<std::uint32_t>(payload.size())) + payload;
    const std::string whole = content + bytesOf(checksumOf(content));
    const bool isValid = isVersion(version) && !payload.empty();
    require(isWritten == (isValid && whole.size() <= limit), "valid images are written");
    require(isValid || image.empty(), "nothing is written of an invalid image");
    require(!isWritten || image == whole, "an image is written like the model's");
    requireCheck(image);
}

} // namespace

// "w": a line with the version, a byte for what the output takes, the payload, with a byte 1 for
// 4 KiB. "c": an image without its checksum, which is added. Otherwise an image.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned kind = size > 0 ? *data : 0;
    if (kind == 'w') {
        input.byte();
        const std::string version = input.line();
        const unsigned limit = input.byte();
        const bool isUnlimited = limit == 255;
        requireImage(version, fuzz::stretched(input.rest()),
                     isUnlimited ? std::string::npos : limit * std::size_t{64});
    } else if (kind == 'c') {
        input.byte();
        const std::string content = input.rest();
        requireCheck(content + bytesOf(checksumOf(content)));
    } else {
        requireCheck(input.rest());
    }
    return 0;
}
