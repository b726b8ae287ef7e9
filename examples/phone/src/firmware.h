// The firmware that the phone runs.
#ifndef FIRMWARE_H
#define FIRMWARE_H

#include "model/firmware_image.h"

#include <mutex>
#include <string>

namespace phone {

// An uploaded image is installed at once and runs from the next start on. Thread-safe.
class Firmware {
public:
    // `path` is where images are installed. If a valid one exists there, the phone runs it.
    explicit Firmware(std::string path);
    Firmware(const Firmware&) = delete;
    Firmware& operator=(const Firmware&) = delete;

    // Returns the running version.
    std::string version() const;

    // Installs the image in the file `received` if it is valid, else changes nothing. In both cases
    // `received` no longer exists.
    ImageCheck install(const std::string& received);

    // Starts the phone: the installed image runs.
    void start();

private:
    const std::string m_path;
    mutable std::mutex m_lock;
    std::string m_version; // guarded by m_lock
};

// Returns an image with the running version.
std::string imageOf(const Firmware& firmware);

} // namespace phone

#endif
