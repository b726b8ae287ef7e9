#include "model/firmware_image.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <zlib.h>

namespace phone {
namespace {

constexpr std::string_view kMagic = "DPFWIMG1";
constexpr std::size_t kModelSize = 16;
constexpr std::size_t kVersionSize = 16;
constexpr std::size_t kHeaderSize = kMagic.size() + kModelSize + kVersionSize + 4;
constexpr std::size_t kPieceSize = 4096;

std::uint32_t addToChecksum(std::uint32_t checksum, std::string_view piece) {
    return static_cast<std::uint32_t>(crc32(checksum, reinterpret_cast<const Bytef*>(piece.data()),
                                            static_cast<uInt>(piece.size())));
}

std::string littleEndian(std::uint32_t number) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(number >> (8 * i) & 0xFF);
    }
    return bytes;
}

std::uint32_t numberIn(std::string_view bytes) {
    std::uint32_t number = 0;
    for (int i = 3; i >= 0; --i) {
        number = number << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
    }
    return number;
}

// Returns the text in a field that is padded with zero bytes.
std::string_view textIn(std::string_view field) {
    return field.substr(0, std::min(field.find('\0'), field.size()));
}

bool isVersion(std::string_view version) {
    return !version.empty() && version.size() <= kVersionSize &&
           version.find_first_not_of("0123456789.") == std::string_view::npos;
}

struct Header {
    std::string_view model;
    std::string_view version;
    std::uint32_t length;
};

Header headerIn(std::string_view bytes) {
    const auto field = [&bytes](std::size_t size) {
        const std::string_view taken = bytes.substr(0, size);
        bytes.remove_prefix(size);
        return taken;
    };
    field(kMagic.size());
    const std::string_view model = textIn(field(kModelSize));
    const std::string_view version = textIn(field(kVersionSize));
    return {model, version, numberIn(bytes)};
}

// Reads a file in pieces and computes their checksum.
class ImageFile {
public:
    explicit ImageFile(const std::string& path)
        : m_file(std::fopen(path.c_str(), "rbe"), &fclose) {}

    bool good() const { return m_file != nullptr && std::ferror(m_file.get()) == 0; }
    std::uint32_t checksum() const { return m_checksum; }

    // Returns the next bytes, at most kPieceSize; fewer at the end of the file.
    std::string_view read(std::size_t count) {
        return {m_piece, std::fread(m_piece, 1, count, m_file.get())};
    }

    // Like read(), and adds the bytes to the checksum.
    std::string_view readSummed(std::size_t count) {
        const std::string_view piece = read(count);
        m_checksum = addToChecksum(m_checksum, piece);
        return piece;
    }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> m_file;
    std::uint32_t m_checksum = 0;
    char m_piece[kPieceSize];
};

ImageFault checkHeader(std::string_view bytes) {
    const std::string_view magic = bytes.substr(0, kMagic.size());
    if (magic != kMagic.substr(0, magic.size())) {
        return ImageFault::notAnImage;
    }
    if (bytes.size() < kHeaderSize) {
        return ImageFault::tooShort;
    }
    const Header header = headerIn(bytes);
    if (header.length == 0 || header.length > kMaxFirmwarePayload || !isVersion(header.version)) {
        return ImageFault::notAnImage;
    }
    return header.model == kPhoneModel ? ImageFault::none : ImageFault::otherModel;
}

ImageFault checkRest(ImageFile& file, std::uint32_t length) {
    while (length > 0) {
        const std::size_t wanted = std::min<std::size_t>(length, kPieceSize);
        if (file.readSummed(wanted).size() != wanted) {
            return ImageFault::tooShort;
        }
        length -= static_cast<std::uint32_t>(wanted);
    }
    const std::string_view end = file.read(5);
    if (end.size() < 4) {
        return ImageFault::tooShort;
    }
    return end.size() == 4 && numberIn(end) == file.checksum() ? ImageFault::none
                                                               : ImageFault::damaged;
}

} // namespace

const char* nameOf(ImageFault fault) {
    switch (fault) {
    case ImageFault::none:
        return "none";
    case ImageFault::unreadable:
        return "unreadable";
    case ImageFault::tooShort:
        return "tooShort";
    case ImageFault::notAnImage:
        return "notAnImage";
    case ImageFault::otherModel:
        return "otherModel";
    case ImageFault::damaged:
        return "damaged";
    }
    return "";
}

ImageCheck checkImage(const std::string& path) {
    ImageFile file(path);
    if (!file.good()) {
        return {ImageFault::unreadable, ""};
    }
    const std::string header(file.readSummed(kHeaderSize));
    ImageFault fault = checkHeader(header);
    if (fault == ImageFault::none) {
        fault = checkRest(file, headerIn(header).length);
    }
    if (!file.good()) {
        fault = ImageFault::unreadable;
    }
    if (fault != ImageFault::none) {
        return {fault, ""};
    }
    return {fault, std::string(headerIn(header).version)};
}

bool writeImage(std::string_view version, std::string_view payload, const ImageOutput& out) {
    if (!isVersion(version) || payload.empty() || payload.size() > kMaxFirmwarePayload) {
        return false;
    }
    std::string header(kMagic);
    header += kPhoneModel;
    header.resize(kMagic.size() + kModelSize);
    header += version;
    header.resize(kMagic.size() + kModelSize + kVersionSize);
    header += littleEndian(static_cast<std::uint32_t>(payload.size()));
    std::uint32_t checksum = addToChecksum(0, header);
    bool taken = out(header);
    while (taken && !payload.empty()) {
        const std::string_view piece = payload.substr(0, kPieceSize);
        checksum = addToChecksum(checksum, piece);
        taken = out(piece);
        payload.remove_prefix(piece.size());
    }
    return taken && out(littleEndian(checksum));
}

} // namespace phone
