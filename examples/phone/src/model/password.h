// Passwords, as they are kept: hashed with yescrypt, see crypt(5).
#ifndef MODEL_PASSWORD_H
#define MODEL_PASSWORD_H

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

// The cost of a hash, as crypt_gensalt(3) takes it: 4 MiB of memory for a moment. The system's own
// default, 5, takes 16 MiB, which is much for a device with 64.
constexpr unsigned long kPasswordCost = 3;

// What crypt(3) can take. Longer ones are refused before anything is hashed.
constexpr std::size_t kMaxPasswordBytes = 511;

// In the whole process one hash is made at a time, so that signing in many times at once does not
// take the memory of the device; the others wait. Any thread.

// A new hash with a salt of its own; empty when the password is too long, or holds a zero byte, or
// there is no memory or no randomness.
std::string hashPassword(std::string_view password);

// Whether the hash was made of the password. Compared in constant time.
bool verifyPassword(std::string_view password, const std::string& hash);

// Whether it looks like a hash of hashPassword().
bool isPasswordHash(std::string_view text);

} // namespace phone

#endif
