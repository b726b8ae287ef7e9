#include "template_cache.h"

#include "base/descriptor.h"
#include "template_parser.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace tmpl {
namespace {

// How often a file is read that changes while it is read; then the last text is used, and not kept.
constexpr int kMaxReads = 3;

bool same(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// One open template file. Its functions throw Fault; failures are reported at the position `asker`.
class TemplateFile {
public:
    TemplateFile(const std::string& path, const Position& asker)
        : m_path(path), m_asker(asker),
          // O_NONBLOCK: a pipe instead of a file must not block the thread.
          m_file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (!m_file)
            fail(errno);
    }

    FileIdentity identity() const {
        struct stat status;
        if (::fstat(m_file.get(), &status) != 0)
            fail(errno);
        if (S_ISDIR(status.st_mode))
            fail(EISDIR);
        if (!S_ISREG(status.st_mode))
            fail(EINVAL);
        return FileIdentity(status);
    }

    // Returns the whole text; if it is too large, only one byte more than the maximum.
    std::string read(off_t expectedSize) const {
        constexpr std::size_t kEnough = kMaxTemplateSize + 1;
        // One byte more than expected, so that reading finds the end without growing the text.
        const auto expected = static_cast<std::uintmax_t>(expectedSize) + 1;
        std::string text(std::min<std::uintmax_t>(expected, kEnough), '\0');
        std::size_t size = 0;
        while (const std::size_t count = readAt(size, &text[size], text.size() - size)) {
            size += count;
            if (size == text.size())
                text.resize(std::min(2 * size, kEnough));
            if (size == kEnough)
                break;
        }
        text.resize(size);
        text.shrink_to_fit();
        return text;
    }

private:
    [[noreturn]] void fail(int error) const {
        throw Fault(Fault::Unreadable, m_asker,
                    "cannot read \"" + m_path + "\": " + std::generic_category().message(error));
    }

    std::size_t readAt(std::size_t offset, char* buffer, std::size_t size) const {
        for (;;) {
            const ssize_t count = ::pread(m_file.get(), buffer, size, static_cast<off_t>(offset));
            if (count >= 0)
                return static_cast<std::size_t>(count);
            if (errno != EINTR)
                fail(errno);
        }
    }

    const std::string& m_path;
    const Position& m_asker;
    base::Descriptor m_file;
};

// Returns whether any later change is sure to give the file another time stamp. This must be judged
// by ctime, since copying programs set mtime back.
bool isSettled(const FileIdentity& identity) {
    const time_t age = std::time(nullptr) - identity.changed.tv_sec;
    return age > TemplateCache::kSettleTime || age < -TemplateCache::kSettleTime;
}

} // namespace

FileIdentity::FileIdentity(const struct stat& status)
    : device(status.st_dev), inode(status.st_ino), size(status.st_size), modified(status.st_mtim),
      changed(status.st_ctim) {}

bool FileIdentity::operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           same(modified, other.modified) && same(changed, other.changed);
}

TemplateCache::TemplateCache(std::size_t maxFiles, std::size_t maxBytes)
    : m_maxFiles(maxFiles), m_maxBytes(maxBytes) {}

std::shared_ptr<const ParsedTemplate> TemplateCache::get(const std::string& path,
                                                         const Position& asker) {
    struct stat status;
    if (::stat(path.c_str(), &status) == 0) {
        if (auto parsed = find(path, FileIdentity(status)))
            return parsed;
    }
    const TemplateFile file(path, asker);
    FileIdentity identity = file.identity();
    bool unchanged = false;
    std::string text;
    for (int i = 0; i < kMaxReads && !unchanged; ++i) {
        text = file.read(identity.size);
        const FileIdentity afterwards = file.identity();
        unchanged = afterwards == identity;
        identity = afterwards;
    }
    auto parsed = parseTemplate(path, std::move(text));
    if (unchanged && isSettled(identity))
        keep(path, identity, parsed);
    return parsed;
}

std::shared_ptr<const ParsedTemplate> TemplateCache::find(const std::string& path,
                                                          const FileIdentity& identity) {
    std::lock_guard<std::mutex> lock(m_lock);
    const auto entry = m_entries.find(path);
    if (entry == m_entries.end() || !(entry->second.identity == identity))
        return nullptr;
    entry->second.lastUse = ++m_uses;
    return entry->second.parsed;
}

void TemplateCache::keep(const std::string& path, const FileIdentity& identity,
                         const std::shared_ptr<const ParsedTemplate>& parsed) {
    const std::size_t size = parsed->footprint();
    std::lock_guard<std::mutex> lock(m_lock);
    forget(path);
    if (size > m_maxBytes)
        return;
    while (!m_entries.empty() && (m_entries.size() >= m_maxFiles || m_bytes + size > m_maxBytes))
        forgetLeastRecentlyUsed();
    m_entries.insert_or_assign(path, Entry{identity, parsed, ++m_uses});
    m_bytes += size;
}

void TemplateCache::forget(const std::string& path) {
    const auto entry = m_entries.find(path);
    if (entry == m_entries.end())
        return;
    m_bytes -= entry->second.parsed->footprint();
    m_entries.erase(entry);
}

void TemplateCache::forgetLeastRecentlyUsed() {
    assert(!m_entries.empty());
    const auto least = std::min_element(m_entries.begin(), m_entries.end(),
                                        [](const auto& left, const auto& right) {
                                            return left.second.lastUse < right.second.lastUse;
                                        });
    m_bytes -= least->second.parsed->footprint();
    m_entries.erase(least);
}

} // namespace tmpl
