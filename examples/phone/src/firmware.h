// The firmware that the phone runs.
#ifndef FIRMWARE_H
#define FIRMWARE_H

#include "model/firmware_image.h"

#include <mutex>
#include <string>
#include <string_view>

namespace phone {

// An uploaded image waits beside the running one and replaces it at the next start. Thread-safe.
class Firmware {
public:
    // `path` is where the running image is stored; the waiting one has ".next" added. A valid one
    // replaces the running one.
    explicit Firmware(std::string path);
    Firmware(const Firmware&) = delete;
    Firmware& operator=(const Firmware&) = delete;

    // Returns the running version.
    std::string version() const;

    // Returns the version that will run after the next start; empty if no image is waiting.
    std::string waitingVersion() const;

    // Lets the image in the file `received` wait for the next start if it is valid, in the place of
    // one that waited before; else changes nothing. In both cases `received` no longer exists.
    ImageCheck install(const std::string& received);

    // Deletes the waiting image, if any. Returns false if it cannot be deleted.
    bool discard();

    // Starts the phone again: the waiting image replaces the running one, if its version is
    // `named`; another one goes on waiting. Without a valid image the phone runs the version it was
    // built with.
    void start(std::string_view named);

private:
    void runWaiting();

    const std::string m_path;
    const std::string m_nextPath;
    mutable std::mutex m_lock;
    // Guarded by m_lock.
    std::string m_version;
    std::string m_waitingVersion;
};

// Returns an image with the running version.
std::string imageOf(const Firmware& firmware);

} // namespace phone

#endif
