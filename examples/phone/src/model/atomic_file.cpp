#include "model/atomic_file.h"

#include "base/descriptor.h"
#include "base/replacement_file.h"
#include "base/write_all.h"
#include "model/journal.h"

#include <cerrno>
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

// Makes a rename durable. If that fails, the new file is in place nevertheless; only a power cut
// soon after could bring back the old one, complete.
void syncFolder(const std::string& folder) {
    const base::Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor || !base::syncToDisk(descriptor.get())) {
        Journal::getInstance()->warn("Cannot sync the folder %s: %s", folder.c_str(),
                                     std::strerror(errno));
    }
}

} // namespace

bool replaceFile(const std::string& path, std::string_view text) {
    // Take all memory before the rename: nothing may fail after it.
    const std::string folder = folderOf(path);
    clearReplacement(path);
    base::ReplacementFile file;
    if (!file.create(AT_FDCWD, replacementOf(path), S_IRUSR | S_IWUSR) || !file.write(text) ||
        !file.sync() || !file.putInPlace(path.c_str())) {
        Journal::getInstance()->error("Cannot save %s: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    syncFolder(folder);
    return true;
}

void clearReplacement(const std::string& path) {
    unlink(replacementOf(path).c_str());
}

std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes) {
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char piece[4096];
    while (file && text.size() <= maxBytes) {
        const ssize_t count = read(file.get(), piece, sizeof piece);
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(piece, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    if (file) {
        errno = EFBIG;
    }
    return std::nullopt;
}

} // namespace phone
