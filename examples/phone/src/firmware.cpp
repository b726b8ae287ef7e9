#include "firmware.h"

#include <cerrno>
#include <cstdio>

namespace phone {

Firmware::Firmware(std::string path) : m_path(std::move(path)), m_nextPath(m_path + ".next") {
    runWaiting();
}

std::string Firmware::version() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_version;
}

std::string Firmware::waitingVersion() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_waitingVersion;
}

ImageCheck Firmware::install(const std::string& received) {
    ImageCheck check = checkImage(received);
    if (check.fault == ImageFault::none) {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (std::rename(received.c_str(), m_nextPath.c_str()) == 0) {
            m_waitingVersion = check.version;
            return check;
        }
        check.fault = ImageFault::unreadable;
    }
    std::remove(received.c_str());
    return check;
}

bool Firmware::discard() {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (std::remove(m_nextPath.c_str()) != 0 && errno != ENOENT) {
        return false;
    }
    m_waitingVersion.clear();
    return true;
}

void Firmware::start(std::string_view named) {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (named == m_waitingVersion) {
        runWaiting();
    }
}

void Firmware::runWaiting() {
    if (checkImage(m_nextPath).fault != ImageFault::none) {
        std::remove(m_nextPath.c_str());
        m_waitingVersion.clear();
    } else if (std::rename(m_nextPath.c_str(), m_path.c_str()) == 0) {
        m_waitingVersion.clear();
    }
    const ImageCheck installed = checkImage(m_path);
    m_version = installed.fault == ImageFault::none ? installed.version : PHONE_FIRMWARE;
}

std::string imageOf(const Firmware& firmware) {
    std::string image;
    writeImage(firmware.version(), "There is no program in the image of a simulated telephone.\n",
               [&](std::string_view piece) {
                   image += piece;
                   return true;
               });
    return image;
}

} // namespace phone
