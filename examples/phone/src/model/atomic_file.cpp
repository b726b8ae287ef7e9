#include "model/atomic_file.h"

#include "web_debug.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace phone {
namespace {

std::string replacementOf(const std::string& path) {
    return path + ".new";
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_number >= 0) {
            close(m_number);
        }
    }
    int number() const { return m_number; }

private:
    const int m_number;
};

bool writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(file, text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool writeFile(const std::string& path, std::string_view text) {
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file.number() >= 0 && writeAll(file.number(), text) && fsync(file.number()) == 0;
}

// Makes a rename last. When it fails the new file is in place all the same, for everybody to read;
// only a power cut right now could bring the old one back, whole.
void syncFolder(const std::string& folder) {
    const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor.number() < 0 || fsync(descriptor.number()) != 0) {
        WebDebug::getInstance()->warn("Cannot sync the folder %s: %s", folder.c_str(),
                                      std::strerror(errno));
    }
}

} // namespace

bool replaceFile(const std::string& path, std::string_view text) {
    // Everything that takes memory comes before the rename, after which nothing may fail.
    const std::string replacement = replacementOf(path);
    const std::string folder = folderOf(path);
    unlink(replacement.c_str());
    if (!writeFile(replacement, text) || std::rename(replacement.c_str(), path.c_str()) != 0) {
        WebDebug::getInstance()->error("Cannot save %s: %s", path.c_str(), std::strerror(errno));
        unlink(replacement.c_str());
        return false;
    }
    syncFolder(folder);
    return true;
}

void clearReplacement(const std::string& path) {
    unlink(replacementOf(path).c_str());
}

std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char piece[4096];
    while (file.number() >= 0 && text.size() <= maxBytes) {
        const ssize_t count = read(file.number(), piece, sizeof piece);
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(piece, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    if (file.number() >= 0) {
        errno = EFBIG;
    }
    return std::nullopt;
}

} // namespace phone
