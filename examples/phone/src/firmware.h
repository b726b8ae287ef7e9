// The firmware that the phone runs.
#ifndef FIRMWARE_H
#define FIRMWARE_H

#include "model/firmware_image.h"

#include <mutex>
#include <string>

namespace phone {

// An image that was uploaded is put in its place at once, and runs from the next start on. Any
// thread.
class Firmware {
public:
    // `path` is where images are put. When a good one is there, the phone runs that.
    explicit Firmware(std::string path);
    Firmware(const Firmware&) = delete;
    Firmware& operator=(const Firmware&) = delete;

    // The version that runs.
    std::string version() const;

    // Takes the image in the file `received`, or leaves all as it is when it is not a good one.
    // The file is gone then, or it has become the image.
    ImageCheck install(const std::string& received);

    // The phone starts: what is installed runs.
    void start();

private:
    const std::string m_path;
    mutable std::mutex m_lock;
    std::string m_version; // guarded by m_lock
};

// An image of the version that runs, to be tried out.
std::string imageOf(const Firmware& firmware);

} // namespace phone

#endif
