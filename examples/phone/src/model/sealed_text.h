// Text that is encrypted with a passphrase: reading it requires the passphrase, and any change of
// it is noticed.
//
// The file is binary:
//
//   20 bytes   "desk phone backup 1\n"; the number is the version
//   16 bytes   the salt of the key, random
//   24 bytes   the nonce, random
//   the rest   the text, encrypted, and 16 bytes that authenticate it and all of the above
//
// XChaCha20-Poly1305 encrypts, Argon2id makes the key. The version alone decides what the key
// costs: with a cost in the file, a forged one could demand any amount of memory and time.
#ifndef MODEL_SEALED_TEXT_H
#define MODEL_SEALED_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

// Memory and passes over it while a key is made, in version 1. The memory is what a device with
// 64 MiB can spare; five passes make up for that, as the OWASP's recommendation for 7 MiB says.
constexpr std::size_t kKeyMemory = 8 * 1024 * 1024;
constexpr unsigned long long kKeyPasses = 5;

// How many bytes a sealed text has more than the text.
constexpr std::size_t kSealBytes = 20 + 16 + 24 + 16;

enum class SealFault {
    none,
    notSealed,    // the file does not begin like a sealed text of any version
    otherVersion, // of another version
    notOpened,    // another passphrase, or not the file that seal() returned
};

struct Unsealed {
    SealFault fault;
    std::string text; // empty after a fault
};

// Thread-safe. Each call takes kKeyMemory and, on the device, about a second of processor time: let
// one run at a time. Both throw std::bad_alloc without memory, and std::runtime_error if libsodium
// cannot be initialised. The key is wiped; the passphrase and the text are the caller's.

// Returns the text, encrypted. Each call returns another file.
std::string seal(std::string_view text, std::string_view passphrase);

// Returns the text of a sealed one. A fault before notOpened is found without making a key.
Unsealed unseal(std::string_view file, std::string_view passphrase);

// Returns whether the file begins like a sealed text of any version.
bool isSealed(std::string_view file);

} // namespace phone

#endif
