// Keys for tests that need to know in which bucket a key goes.
#ifndef BUCKET_KEYS_H
#define BUCKET_KEYS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The hash as a sum, byte by byte from the end, each byte weighted with a power of 131.
inline std::uint32_t expectedHash(const std::string& key) {
    const std::uint64_t kModulus = std::uint64_t{1} << 32;
    const std::string hashed = key.substr(0, key.find('\0'));
    std::uint64_t sum = 0;
    std::uint64_t weight = 1;
    for (std::size_t i = hashed.size(); i-- > 0;) {
        sum = (sum + weight * static_cast<unsigned char>(hashed[i])) % kModulus;
        weight = weight * 131 % kModulus;
    }
    return static_cast<std::uint32_t>(sum % (std::uint64_t{1} << 31));
}

// Different keys that all go into `bucket` of `buckets`.
inline std::vector<std::string> keysInBucket(std::uint32_t bucket, std::size_t count,
                                             std::uint32_t buckets = 100) {
    std::vector<std::string> keys;
    for (unsigned int number = 0; keys.size() < count; ++number) {
        std::string key = "k" + std::to_string(number);
        if (expectedHash(key) % buckets == bucket)
            keys.push_back(std::move(key));
    }
    return keys;
}

#endif
