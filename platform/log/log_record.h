// One record of the log as a line of text:
//
//     2026-11-21T03:00:00Z warning [65] thread=2 request=1041 user=admin: session expired
//
// The time is UTC and the number is the module; records of the web interface have "web" in its
// place, those of the log itself "log". Thread and request are there while the thread serves a
// request, where the host has arranged for it; "user=…" is there while somebody is signed in. The
// system log gets the part from "[" on: it adds time and level itself.
//
// Escaping: a line feed is \n, a carriage return \r, a tab \t, the backslash \\; every other
// control character (U+0000 to U+001F, U+007F to U+009F) and every byte that is not part of
// well-formed UTF-8 is \xHH, byte by byte. Each text thus has one escaped form, and reading it
// back is unambiguous.
#ifndef LOG_RECORD_H
#define LOG_RECORD_H

#include "log_control.h"

#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace device_log {

// Bytes after escaping; what is longer is cut and ends in "...". A whole line stays below 4096
// bytes, which a pipe takes in one piece whoever else writes to it (PIPE_BUF).
constexpr std::size_t kMaxText = 1024;
constexpr std::size_t kMaxUser = 64;

// A bounded text that needs no heap, always terminated.
template <std::size_t kCapacity>
class FixedText {
public:
    // What does not fit is left out.
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

// The text of printf(3)'s result, escaped, without one trailing newline. `format` must not be
// null.
EscapedText formatText(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

// The name as it stands behind "user=": blanks and colons are escaped too, since they end it.
// Null gives an empty text, as no user does.
UserName escapeUser(const char* user);

class Record {
public:
    // `module` is "65" or "web"; a request with the number 0 and an empty user are none.
    Record(std::time_t time, int level, std::string_view module, const app_log_request& request,
           const UserName& user, const EscapedText& text);

    // Ends in a line feed.
    std::string_view line() const { return m_line.view(); }
    // What the system log gets, without a line feed.
    std::string_view message() const;

private:
    FixedText<kMaxText + kMaxUser + 128> m_line;
    std::size_t m_messageBegin;
};

} // namespace device_log

#endif
