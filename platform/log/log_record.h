// One record of the log as a line of text:
//
//     2026-11-21T03:00:00Z warning [65] thread=2 request=1041 user=admin: session expired
//
// The time is UTC. In brackets is the number of the module; records of the web interface have "web"
// there, those of the log itself "log". Thread and request are named while the thread serves a
// request, if the host provides them (log_control.h); the user is named while one is set. The
// system log gets the part from "[" on: it adds time and level itself.
//
// Escaping: a line feed becomes \n, a carriage return \r, a tab \t, a backslash \\; every other
// control character (U+0000 to U+001F, U+007F to U+009F) and every byte that is not part of
// well-formed UTF-8 becomes \xHH, byte by byte. So each text has exactly one escaped form, which
// can be read back.
#ifndef LOG_RECORD_H
#define LOG_RECORD_H

#include "log_control.h"

#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace device_log {

// Bytes after escaping; a longer text is cut and ends in "...". A whole line stays below 4096 bytes
// (PIPE_BUF), so a pipe takes it in one piece, whatever other processes write.
constexpr std::size_t kMaxText = 1024;
constexpr std::size_t kMaxUser = 64;

// A text of at most kCapacity bytes, terminated, that needs no heap.
template <std::size_t kCapacity>
class FixedText {
public:
    // Appends as much of `text` as fits.
    void append(std::string_view text) {
        const std::size_t count = text.copy(m_text + m_size, kCapacity - m_size);
        m_size += count;
        m_text[m_size] = '\0';
    }
    std::string_view view() const { return {m_text, m_size}; }
    const char* c_str() const { return m_text; }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }

private:
    std::size_t m_size = 0;
    char m_text[kCapacity + 1] = {};
};

constexpr std::size_t kEllipsisSize = 3;
using EscapedText = FixedText<kMaxText + kEllipsisSize>;
using UserName = FixedText<kMaxUser + kEllipsisSize>;

// Returns the text that printf(3) would write, escaped and without one trailing newline. `format`
// must not be null.
EscapedText formatText(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

// Returns the name as it appears behind "user=": blanks and colons are escaped, too, since they end
// it there. Null, which stands for no user, becomes an empty text.
UserName escapeUser(const char* user);

class Record {
public:
    // `module` is the text in brackets. A request of the number 0 and an empty user are left out.
    Record(std::time_t time, int level, std::string_view module, const app_log_request& request,
           const UserName& user, const EscapedText& text);

    // Returns the whole line with its line feed.
    std::string_view line() const { return m_line.view(); }
    // Returns the part for the system log, without a line feed.
    std::string_view message() const;

private:
    FixedText<kMaxText + kMaxUser + 128> m_line;
    std::size_t m_messageBegin;
};

} // namespace device_log

#endif
