#include "upload_file.h"

#include "base/write_all.h"
#include "decoding_limits.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <string_view>

namespace {

// The owner may write, all programs of the device may read, as far as the umask allows.
constexpr mode_t kFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

// A power cut can leave a temporary file behind; then the next name is tried.
constexpr int kMaxNamesTried = 1000;

int openFolder(const char* path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    int folder = openat(AT_FDCWD, path, kFlags);
    while (folder < 0 && errno == EINTR)
        folder = openat(AT_FDCWD, path, kFlags);
    return folder;
}

} // namespace

cgi::UploadFile::UploadFile(const char* path) {
    assert(path != nullptr);
    const std::string_view whole = path;
    const std::size_t nameBegin = whole.rfind('/') + 1; // npos + 1 is 0
    m_folderPath = nameBegin == 0 ? "." : whole.substr(0, nameBegin);
    m_name = whole.substr(nameBegin);
}

bool cgi::UploadFile::begin() {
    assert(!m_folder && "begin() is called once");
    m_unwritten.reserve(kWriteBytes);
    if (m_name.empty()) {
        errno = EISDIR;
        return false;
    }
    m_folder = base::Descriptor(openFolder(m_folderPath.c_str()));
    return m_folder && createTemporary();
}

// The process id and the descriptor of the folder make the name unique among uploads under way.
bool cgi::UploadFile::createTemporary() {
    for (int attempt = 0; attempt < kMaxNamesTried; ++attempt) {
        char name[64];
        std::snprintf(name, sizeof name, ".upload-%ld-%d-%d", static_cast<long>(getpid()),
                      m_folder.get(), attempt);
        if (m_file.create(m_folder.get(), name, kFileMode))
            return true;
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool cgi::UploadFile::append(const char* data, std::size_t size) {
    assert(m_folder && "begin() comes before append()");
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
    const bool written = m_file.write({m_unwritten.data(), m_unwritten.size()});
    m_unwritten.clear();
    return written;
}

bool cgi::UploadFile::keep() {
    assert(m_folder && "begin() comes before keep()");
    if (!flush() || !m_file.sync() || !m_file.close() || !m_file.putInPlace(m_name.c_str()))
        return false;
    // Even if the folder cannot be synced, the upload is complete: at worst a power cut brings back
    // the old file, whole.
    base::syncToDisk(m_folder.get());
    return true;
}
