// Password hashes (yescrypt, see crypt(5)).
#ifndef MODEL_PASSWORD_H
#define MODEL_PASSWORD_H

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

// The cost of a hash as passed to crypt_gensalt(3): 4 MiB of memory while hashing. The system's
// default, 5, takes 16 MiB, too much for a device with 64 MiB.
constexpr unsigned long kPasswordCost = 3;

// The limit of crypt(3). Longer passwords are rejected before hashing.
constexpr std::size_t kMaxPasswordBytes = 511;

// Thread-safe. The process computes one hash at a time, so that many sign-ins at once do not use up
// the device's memory; the others wait.

// Returns a new hash with a random salt. Empty if the password is too long or contains a zero byte,
// or if memory or randomness is missing.
std::string hashPassword(std::string_view password);

// Returns whether `hash` was made from `password`. Compares in constant time. Throws std::bad_alloc
// without the memory to find out.
bool verifyPassword(std::string_view password, const std::string& hash);

// Returns whether `text` has the form of a hash of hashPassword().
bool isPasswordHash(std::string_view text);

} // namespace phone

#endif
