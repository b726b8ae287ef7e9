// Parsed template files, kept until they change on disk.
#ifndef TEMPLATE_CACHE_H
#define TEMPLATE_CACHE_H

#include "parsed_template.h"
#include "template_fault.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace tmpl {

// What tells one state of a file from another.
struct FileIdentity {
    explicit FileIdentity(const struct stat& status);
    bool operator==(const FileIdentity& other) const;

    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified;
    // Cannot be set back, as the other time can.
    timespec changed;
};

// All operations may run on any thread at any time; files are read outside the lock.
class TemplateCache {
public:
    // More than the pages of a device have, and what their parsed files may take of its memory.
    static constexpr std::size_t kMaxFiles = 256;
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;
    // A file changed this short a time ago (in seconds) is not kept: a file system counts time in
    // steps of up to two seconds, so the next change may leave it looking the same.
    static constexpr time_t kSettleTime = 2;

    explicit TemplateCache(std::size_t maxFiles = kMaxFiles, std::size_t maxBytes = kMaxBytes);

    // The file as it is on disk now; never null. Throws Fault for a wrong template and for a file
    // that cannot be read, which is then reported at `asker`; std::bad_alloc without memory.
    std::shared_ptr<const ParsedTemplate> get(const std::string& path, const Position& asker);

private:
    struct Entry {
        FileIdentity identity;
        std::shared_ptr<const ParsedTemplate> parsed;
        std::uint64_t lastUse;
    };

    std::shared_ptr<const ParsedTemplate> find(const std::string& path,
                                               const FileIdentity& identity);
    void keep(const std::string& path, const FileIdentity& identity,
              const std::shared_ptr<const ParsedTemplate>& parsed);
    void forget(const std::string& path);
    void forgetLeastUsed();

    const std::size_t m_maxFiles;
    const std::size_t m_maxBytes;

    // Guarded by m_lock.
    std::mutex m_lock;
    std::unordered_map<std::string, Entry> m_entries;
    std::size_t m_bytes = 0;
    std::uint64_t m_uses = 0;
};

} // namespace tmpl

#endif
