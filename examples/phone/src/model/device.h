// Holds the phone's lasting state.
#ifndef MODEL_DEVICE_H
#define MODEL_DEVICE_H

#include "model/password_store.h"
#include "model/state_store.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace phone {

// The result of a change. Either it is done: published and on the disk. Or nothing changed, neither
// in memory nor on the disk, because of `errors` or because saving failed (logged).
struct Outcome {
    Errors errors;
    bool saveFailed = false;

    bool done() const { return errors.empty() && !saveFailed; }
};

// Thread-safe. Readers never wait for a save.
class Device {
public:
    struct Files {
        // In an existing folder that only the phone uses. Beside it are the files "changes.xml",
        // "password.1" and "password.2" and, before a new phone starts, the file "reset".
        std::string state;
        std::string factoryContacts; // CSV; read only
    };

    // Loads the state. If the file "reset" exists, which a phone is delivered with and which a
    // reset at the device creates, the phone starts as a new one; preparePassword() removes the
    // file. Without
    // a state file, or with a damaged one (which is renamed to end in ".damaged"), it starts with
    // factory settings, but with its password. Without its password it is closed. Throws
    // std::runtime_error if a file exists but cannot be read, and std::bad_alloc without memory:
    // neither may reset the phone. If the folder cannot be written, construction succeeds and later
    // changes fail. Removes what an interrupted save left behind.
    explicit Device(Files files);
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Returns a snapshot of the state, which never changes. Never null.
    std::shared_ptr<const State> state() const;

    // Calls `edit` with a copy of the state. If it returns no errors, saves the copy and then
    // publishes it. `edit` runs on the calling thread while other changes wait; it must not call
    // this object. If it throws, nothing changes.
    using Edit = std::function<Errors(State&)>;
    Outcome change(const Edit& edit);

    // Returns whether there is no password, because none could be read: then no user can sign in,
    // and nothing can be changed, until the phone is reset at the device.
    bool isClosed() const { return !m_isNew && state()->settings.web.passwordHash.empty(); }

    // Hashes and saves the factory password if the phone is a new one, which takes seconds on a
    // slow processor: too long for the first page to wait. Waits if another thread does it already.
    // Does nothing (logged) without the memory to hash it: until then no password is right. If it
    // cannot be saved (logged), it counts until the next start, which is that of a new phone again.
    void preparePassword();

    // Prepares the password, and returns whether these are the web user's name and password. Takes
    // the same time for an unknown name. Throws std::bad_alloc without the memory to find out.
    bool authenticate(std::string_view name, std::string_view password);

    // Reads the fields oldPassword (wrongPassword; ignored as long as the factory password is in
    // use, so that setting the first one does not ask for what everyone knows), newPassword
    // (required, tooShort 8, tooLong 128, notUtf8, badCharacters, same) and repeat (mismatch).
    Outcome changePassword(const std::string& oldPassword, const std::string& newPassword,
                           const std::string& repeat);

    // Resets settings, password and contacts to the factory state and deletes the local copy.
    Outcome factoryReset();

private:
    State factoryState() const;
    void startAsNew();
    void hashFactoryPassword();
    void publish(std::shared_ptr<const State> state);
    void loadPassword(State& state);
    bool save(const State& state);
    bool saveAndPublish(std::shared_ptr<const State> state);

    const Files m_files;
    const std::string m_resetFile;
    // Used by the thread that holds m_changing.
    StateStore m_store;
    PasswordStore m_passwords;
    bool m_hasResetFile;
    // Held by the one thread that changes and saves; lock before m_publishing.
    std::mutex m_changing;
    mutable std::mutex m_publishing;
    std::shared_ptr<const State> m_state; // guarded by m_publishing
    // Whether the factory password counts, and is not hashed yet. Set to false, by the thread that
    // holds m_changing, after a state with the hash was published.
    std::atomic<bool> m_isNew{false};
};

} // namespace phone

#endif
