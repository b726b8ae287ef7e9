// What the phone itself has logged since it started, for its page "log".
#ifndef MODEL_JOURNAL_H
#define MODEL_JOURNAL_H

#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

enum class Severity { error = 3, warning = 4, info = 6 }; // as in syslog(3)

// Returns "error", "warning" or "info". Never null.
const char* nameOf(Severity severity);

struct JournalEntry {
    std::time_t time;
    Severity severity;
    std::string text; // one line, see escapedLine()
};

// Returns `text` with control characters, characters that change the direction of the text, and
// bytes that are not UTF-8 as \xHH, one for each byte: a stranger's name must not look like a line
// of its own, or like another text. A backslash becomes two.
std::string escapedLine(std::string_view text);

// Keeps the latest records of the log. Thread-safe.
class Journal {
public:
    static constexpr std::size_t kMaxEntries = 300;
    static constexpr std::size_t kMaxText = 300; // bytes before escaping; the rest is cut off

    // Returns the only object of the library. Never null.
    static Journal* getInstance();

    // Write one record to the device's log, see WebDebug, and keep it. Without memory it is not
    // kept. `format` is as for printf(3). The page shows the records to whoever is signed in, so
    // they must not contain a secret, nor what may be one by mistake, like an unknown user's name.
    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Returns the records that are at least as severe, newest first, at most `most`.
    std::vector<JournalEntry> recent(Severity least, std::size_t most = kMaxEntries) const;

private:
    Journal() = default;
    void keep(Severity severity, const char* format, va_list arguments) noexcept;

    mutable std::mutex m_lock;
    std::deque<JournalEntry> m_entries; // oldest first; guarded by m_lock
};

} // namespace phone

#endif
