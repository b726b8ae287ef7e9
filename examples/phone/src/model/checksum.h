// The checksum of a stored text.
#ifndef MODEL_CHECKSUM_H
#define MODEL_CHECKSUM_H

#include <string_view>
#include <zlib.h>

namespace phone {

// Returns the CRC-32 of `text`, of at most 4 GiB.
inline unsigned long checksumOf(std::string_view text) {
    return crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size()));
}

} // namespace phone

#endif
