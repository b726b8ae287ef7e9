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

// Identifies one version of a file: a changed file differs in one of these.
struct FileIdentity {
    explicit FileIdentity(const struct stat& status);
    bool operator==(const FileIdentity& other) const;

    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified; // mtime
    timespec changed;  // ctime: unlike mtime, programs cannot set it
};

// Thread-safe; files are read outside the lock.
class TemplateCache {
public:
    // More files than the pages of a device have, and the share of its memory for them when parsed.
    static constexpr std::size_t kMaxFiles = 256;
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;
    // A file that changed at most this many seconds ago is not kept: file systems count time in
    // steps of up to two seconds, so the next change might not change the time stamp.
    static constexpr time_t kSettleTime = 2;

    explicit TemplateCache(std::size_t maxFiles = kMaxFiles, std::size_t maxBytes = kMaxBytes);

    // Returns the file as it is on disk now; never null. Throws Fault for a wrong template, and for
    // a file that cannot be read, with the position `asker`. Throws std::bad_alloc.
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
    void forgetLeastRecentlyUsed();

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
