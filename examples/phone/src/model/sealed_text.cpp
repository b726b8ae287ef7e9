#include "model/sealed_text.h"

#include <new>
#include <sodium.h>
#include <stdexcept>

namespace phone {
namespace {

constexpr std::string_view kMagic = "desk phone backup ";
constexpr std::string_view kTitle = "desk phone backup 1\n";
constexpr std::size_t kSaltBytes = crypto_pwhash_argon2id_SALTBYTES;
constexpr std::size_t kNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kHeaderBytes = kTitle.size() + kSaltBytes + kNonceBytes;
static_assert(kSealBytes == kHeaderBytes + kTagBytes);

unsigned char* bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

const unsigned char* bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// The parts of a header, which must have kHeaderBytes.
std::string_view saltOf(std::string_view header) {
    return header.substr(kTitle.size(), kSaltBytes);
}
std::string_view nonceOf(std::string_view header) {
    return header.substr(kTitle.size() + kSaltBytes, kNonceBytes);
}

void initialise() {
    static const int status = sodium_init();
    if (status < 0) {
        throw std::runtime_error("libsodium cannot be initialised");
    }
}

class Key {
public:
    Key(std::string_view passphrase, std::string_view salt) {
        if (crypto_pwhash_argon2id(m_bytes, sizeof m_bytes, passphrase.data(), passphrase.size(),
                                   bytes(salt), kKeyPasses, kKeyMemory,
                                   crypto_pwhash_argon2id_ALG_ARGON2ID13) != 0) {
            throw std::bad_alloc();
        }
    }
    ~Key() { sodium_memzero(m_bytes, sizeof m_bytes); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const unsigned char* data() const { return m_bytes; }

private:
    unsigned char m_bytes[crypto_aead_xchacha20poly1305_ietf_KEYBYTES];
};

} // namespace

bool isSealed(std::string_view file) {
    return file.substr(0, kMagic.size()) == kMagic;
}

std::string seal(std::string_view text, std::string_view passphrase) {
    initialise();
    std::string file(text.size() + kSealBytes, '\0');
    file.replace(0, kTitle.size(), kTitle);
    randombytes_buf(bytes(file) + kTitle.size(), kSaltBytes + kNonceBytes);
    const std::string_view header = std::string_view(file).substr(0, kHeaderBytes);
    const Key key(passphrase, saltOf(header));
    crypto_aead_xchacha20poly1305_ietf_encrypt(bytes(file) + kHeaderBytes, nullptr, bytes(text),
                                               text.size(), bytes(header), header.size(), nullptr,
                                               bytes(nonceOf(header)), key.data());
    return file;
}

Unsealed unseal(std::string_view file, std::string_view passphrase) {
    if (!isSealed(file)) {
        return {SealFault::notSealed, ""};
    }
    if (file.substr(0, kTitle.size()) != kTitle) {
        return {SealFault::otherVersion, ""};
    }
    if (file.size() < kSealBytes) {
        return {SealFault::notOpened, ""};
    }
    initialise();
    const std::string_view header = file.substr(0, kHeaderBytes);
    const std::string_view encrypted = file.substr(kHeaderBytes);
    const Key key(passphrase, saltOf(header));
    std::string text(encrypted.size() - kTagBytes, '\0');
    const int status = crypto_aead_xchacha20poly1305_ietf_decrypt(
        bytes(text), nullptr, nullptr, bytes(encrypted), encrypted.size(), bytes(header),
        header.size(), bytes(nonceOf(header)), key.data());
    if (status != 0) {
        return {SealFault::notOpened, ""};
    }
    return {SealFault::none, std::move(text)};
}

} // namespace phone
