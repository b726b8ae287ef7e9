#include "firmware.h"

#include <cstdio>

namespace phone {

Firmware::Firmware(std::string path) : m_path(std::move(path)) {
    start();
}

std::string Firmware::version() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_version;
}

ImageCheck Firmware::install(const std::string& received) {
    ImageCheck check = checkImage(received);
    if (check.fault == ImageFault::none && std::rename(received.c_str(), m_path.c_str()) == 0) {
        return check;
    }
    std::remove(received.c_str());
    if (check.fault == ImageFault::none) {
        check.fault = ImageFault::unreadable;
    }
    return check;
}

void Firmware::start() {
    const ImageCheck installed = checkImage(m_path);
    std::lock_guard<std::mutex> guard(m_lock);
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
