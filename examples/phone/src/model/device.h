// The one place where the phone's lasting state lives.
#ifndef MODEL_DEVICE_H
#define MODEL_DEVICE_H

#include "model/directory.h"
#include "model/settings.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace phone {

struct State {
    Settings settings;
    Directory directory;
    std::string localCopy; // a configuration as text, see configuration.h; empty: none
};

// What became of a change. Either it is done: published, and on the disk; or nothing has changed,
// neither in memory nor on the disk, because of the errors or because it could not be saved (which
// the log explains).
struct Outcome {
    Errors errors;
    bool saveFailed = false;

    bool done() const { return errors.empty() && !saveFailed; }
};

// Any thread, at any time. Readers never wait for a save.
class Device {
public:
    struct Files {
        std::string state;           // in a folder that exists and is the phone's own
        std::string factoryContacts; // CSV; only read
    };

    // Loads the state. Where there is none, and where it is damaged (the damaged file is kept with
    // ".damaged" behind its name), the phone starts as it left the factory. A file that is there
    // and cannot be read is no reason for that, which is a std::runtime_error, nor is a lack of
    // memory, a std::bad_alloc. One that cannot be written is no failure here: the changes will
    // fail. A save that was interrupted is cleared away.
    explicit Device(Files files);
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // The state as it is now; it never changes. Never null.
    std::shared_ptr<const State> state() const;

    // Changes a copy of the state, saves it if no error was given, and only then publishes it.
    // `edit` runs on the calling thread while other changes wait; it must not call this object.
    // It may throw, which changes nothing.
    using Edit = std::function<Errors(State&)>;
    Outcome change(const Edit& edit);

    // Whether this is the web user's name and password. Takes as long for a name that there is not.
    bool authenticate(std::string_view name, std::string_view password) const;

    // Fields oldPassword (wrongPassword), newPassword (required, tooShort 8, tooLong 128, notUtf8,
    // badCharacters, same) and repeat (mismatch).
    Outcome changePassword(const std::string& oldPassword, const std::string& newPassword,
                           const std::string& repeat);

    // Everything as it left the factory: settings, password, contacts; no local copy.
    Outcome factoryReset();

private:
    std::shared_ptr<const State> load() const;
    State factoryState() const;
    bool saveAndPublish(std::shared_ptr<const State> state);

    const Files m_files;
    std::mutex m_changing; // held by the one thread that changes and saves; taken first
    mutable std::mutex m_publishing;
    std::shared_ptr<const State> m_state; // guarded by m_publishing
};

} // namespace phone

#endif
