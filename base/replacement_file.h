// A new file that replaces another one as a whole or not at all.
#ifndef BASE_REPLACEMENT_FILE_H
#define BASE_REPLACEMENT_FILE_H

#include "base/descriptor.h"
#include "base/write_all.h"

#include <fcntl.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

namespace base {

// Owns a new file in the folder of the file that it is to replace. Call create(), write() any
// number of times, sync() and putInPlace(), each only after the one before it has returned true.
//   Failure   false, with the reason in errno. The file to be replaced then stays as it is.
//   Leaves    nothing: the destructor removes a new file that was not put in place. Only a process
//             that is killed, or a power cut, can leave one behind, under the name of create().
//   Threads   one at a time.
class ReplacementFile {
public:
    ReplacementFile() = default;
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile() {
        if (!m_path.empty())
            ::unlinkat(m_folder, m_path.c_str(), 0);
    }

    // Creates the new file. Paths are relative to `folder`, a descriptor that must stay open longer
    // than this object lives, or AT_FDCWD. Fails with EEXIST, and leaves it alone, when anything
    // has that path already, a symbolic link included; another path may be tried then.
    bool create(int folder, std::string path, mode_t mode) {
        assert(m_path.empty());
        m_file = Descriptor(open(folder, path.c_str(), mode));
        if (!m_file)
            return false;
        m_folder = folder;
        m_path = std::move(path);
        return true;
    }

    bool write(std::string_view data) {
        assert(m_file);
        return writeAll(m_file.get(), data);
    }

    // Waits until all that was written is on the disk.
    bool sync() {
        assert(m_file);
        return syncToDisk(m_file.get());
    }

    // Closes the file before putInPlace() does, for callers that want to know of errors which some
    // file systems report no earlier.
    bool close() { return m_file.close(); }

    // Renames the new file to `target`, a path in the same folder, and so removes what stood there.
    // Sync the folder, too, before relying on it: until then a power cut may bring back the old
    // file, whole.
    bool putInPlace(const char* target) {
        assert(!m_path.empty());
        m_file.close(); // cannot lose anything: sync() has found all of it on the disk
        if (::renameat(m_folder, m_path.c_str(), m_folder, target) != 0)
            return false;
        m_path.clear();
        return true;
    }

private:
    static int open(int folder, const char* path, mode_t mode) {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        int file = ::openat(folder, path, kFlags, mode);
        while (file < 0 && errno == EINTR)
            file = ::openat(folder, path, kFlags, mode);
        return file;
    }

    int m_folder = AT_FDCWD;
    std::string m_path; // empty unless the new file exists
    Descriptor m_file;
};

} // namespace base

#endif
