// Keeps who may sign in apart from the other state, and twice.
#ifndef MODEL_PASSWORD_STORE_H
#define MODEL_PASSWORD_STORE_H

#include <optional>
#include <string>
#include <utility>

namespace phone {

// The user of the pages and the hash of the password.
struct Credentials {
    std::string user;
    std::string hash;              // see password.h
    bool isFactoryPassword = true; // whether the factory password is still in use

    bool operator==(const Credentials& other) const {
        return user == other.user && hash == other.hash &&
               isFactoryPassword == other.isFactoryPassword;
    }
};

// Two files with the same contents: a number that grows with each change, the credentials and a
// checksum. The newer valid file counts, so that one damaged file, or a power cut during a change,
// loses nothing. One thread at a time.
class PasswordStore {
public:
    // `path` is that of the files without ".1" and ".2".
    explicit PasswordStore(std::string path) : m_path(std::move(path)) {}

    // Returns the credentials, or nothing if neither file has any. Throws std::runtime_error if a
    // file cannot be opened now but perhaps later, for example because no descriptor is left: an
    // earlier password in the other file must not count. Removes what an interrupted save() left
    // behind, and repairs the other file.
    std::optional<Credentials> load();

    // Replaces both files, the older one first, unless they have these credentials already. Returns
    // false (logged), or throws std::bad_alloc, if the stored credentials stay. Call after load().
    bool save(const Credentials& credentials);

    // Returns what load() returned or save() saved last.
    const std::optional<Credentials>& stored() const { return m_stored; }

private:
    std::string file(int number) const { return m_path + (number == 0 ? ".1" : ".2"); }

    const std::string m_path;
    std::optional<Credentials> m_stored;
    unsigned long m_number = 0; // of the newer valid file
    int m_newer = 1;            // which file that is: 0 or 1
};

} // namespace phone

#endif
