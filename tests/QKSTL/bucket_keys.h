// Keys for tests that need to know the bucket of a key.
#ifndef BUCKET_KEYS_H
#define BUCKET_KEYS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Returns the hash as a sum over the bytes from the end, each weighted with a power of 131.
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

// Returns different keys that all belong to `bucket` of `buckets`.
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
