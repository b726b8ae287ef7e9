#include "upload_file.h"

#include "decoding_limits.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>

namespace {

// The owner writes, the programs of the device read, as far as the umask lets them.
constexpr mode_t kFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

// Each loss of power may leave one file behind under a name that is wanted again.
constexpr int kMaxNamesTried = 1000;

bool writeAll(int file, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(file, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool syncToDisk(int file) {
    int result = fsync(file);
    while (result != 0 && errno == EINTR)
        result = fsync(file);
    return result == 0;
}

int openUninterrupted(int folder, const char* name, int flags, mode_t mode) {
    int file = openat(folder, name, flags | O_CLOEXEC, mode);
    while (file < 0 && errno == EINTR)
        file = openat(folder, name, flags | O_CLOEXEC, mode);
    return file;
}

} // namespace

bool cgi::Descriptor::reset(int descriptor) {
    close();
    m_descriptor = descriptor;
    return descriptor >= 0;
}

bool cgi::Descriptor::close() {
    if (m_descriptor < 0)
        return true;
    const int result = ::close(m_descriptor);
    m_descriptor = -1;
    // Interrupted or not, the descriptor is gone, and the data have been synced before.
    return result == 0 || errno == EINTR;
}

cgi::UploadFile::UploadFile(const char* path) {
    const std::string_view whole = path;
    const std::size_t nameBegin = whole.rfind('/') + 1; // 0 without a slash
    m_folderPath = nameBegin == 0 ? "." : whole.substr(0, nameBegin);
    m_name = whole.substr(nameBegin);
}

cgi::UploadFile::~UploadFile() {
    if (!m_temporaryName.empty())
        unlinkat(m_folder.get(), m_temporaryName.c_str(), 0);
}

bool cgi::UploadFile::begin() {
    m_unwritten.reserve(kWriteBytes);
    return !m_name.empty() &&
           m_folder.reset(
               openUninterrupted(AT_FDCWD, m_folderPath.c_str(), O_RDONLY | O_DIRECTORY, 0)) &&
           createTemporary();
}

// The process and its descriptor of the folder tell this upload from all others under way.
bool cgi::UploadFile::createTemporary() {
    for (int attempt = 0; attempt < kMaxNamesTried; ++attempt) {
        char name[64];
        std::snprintf(name, sizeof name, ".upload-%ld-%d-%d", static_cast<long>(getpid()),
                      m_folder.get(), attempt);
        std::string temporaryName = name;
        if (m_file.reset(openUninterrupted(m_folder.get(), name,
                                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kFileMode))) {
            m_temporaryName = std::move(temporaryName);
            return true;
        }
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool cgi::UploadFile::append(const char* data, std::size_t size) {
    while (size > 0) {
        const std::size_t count = std::min(size, kWriteBytes - m_unwritten.size());
        m_unwritten.insert(m_unwritten.end(), data, data + count);
        data += count;
        size -= count;
        if (m_unwritten.size() == kWriteBytes && !flush())
            return false;
    }
    return true;
}

bool cgi::UploadFile::flush() {
    const bool written = writeAll(m_file.get(), m_unwritten.data(), m_unwritten.size());
    m_unwritten.clear();
    return written;
}

bool cgi::UploadFile::keep() {
    if (!flush() || !syncToDisk(m_file.get()) || !m_file.close() ||
        renameat(m_folder.get(), m_temporaryName.c_str(), m_folder.get(), m_name.c_str()) != 0)
        return false;
    m_temporaryName.clear();
    // There is no way back from here, and none is needed: should the folder not reach the disk,
    // then the file of before is found again, whole.
    syncToDisk(m_folder.get());
    return true;
}
