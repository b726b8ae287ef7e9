#include "model/password.h"

#include "kit/secrets.h"

#include <algorithm>
#include <crypt.h>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

namespace phone {
namespace {

constexpr const char* kMethod = "$y$"; // yescrypt

// The workspace of crypt_r(3), 32 KiB. Wiped in the destructor because it held the password.
class Workspace {
public:
    ~Workspace() { explicit_bzero(m_data.get(), sizeof *m_data); }
    crypt_data* get() { return m_data.get(); }

private:
    std::unique_ptr<crypt_data> m_data = std::make_unique<crypt_data>();
};

bool canBeHashed(std::string_view password) {
    return password.size() <= kMaxPasswordBytes && password.find('\0') == std::string_view::npos;
}

// Returns the hash of the password with the salt or hash `setting`; empty on failure.
std::string hashAs(std::string_view password, const char* setting) {
    if (!canBeHashed(password)) {
        return {};
    }
    static std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    Workspace workspace;
    std::string phrase(password);
    const char* hash = crypt_r(phrase.c_str(), setting, workspace.get());
    explicit_bzero(phrase.data(), phrase.size());
    // crypt_r(3) may report failure by a text that no hash begins with.
    return hash != nullptr && hash[0] != '*' ? hash : "";
}

// Returns whether `hash` is complete: method, parameters, salt and a digest of 256 bits. crypt_r(3)
// then fails only without memory, which its errno does not tell from an invalid hash.
bool isComplete(const std::string& hash) {
    constexpr std::size_t kDigestCharacters = 43;
    const std::size_t digest = hash.rfind('$') + 1;
    return isPasswordHash(hash) && std::count(hash.begin(), hash.end(), '$') == 4 &&
           hash.size() - digest == kDigestCharacters;
}

bool isHashCharacter(char character) {
    return character == '.' || character == '/' || character == '$' ||
           (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

} // namespace

std::string hashPassword(std::string_view password) {
    char salt[CRYPT_GENSALT_OUTPUT_SIZE];
    if (crypt_gensalt_rn(kMethod, kPasswordCost, nullptr, 0, salt, sizeof salt) == nullptr) {
        return {};
    }
    return hashAs(password, salt);
}

bool verifyPassword(std::string_view password, const std::string& hash) {
    if (!canBeHashed(password)) {
        return false;
    }
    const std::string made = hashAs(password, hash.c_str());
    if (made.empty() && isComplete(hash)) {
        throw std::bad_alloc();
    }
    return !made.empty() && kit::equalSecrets(made, hash);
}

bool isPasswordHash(std::string_view text) {
    return text.size() > std::strlen(kMethod) && text.size() < CRYPT_OUTPUT_SIZE &&
           text.substr(0, std::strlen(kMethod)) == kMethod &&
           std::all_of(text.begin(), text.end(), isHashCharacter);
}

} // namespace phone
