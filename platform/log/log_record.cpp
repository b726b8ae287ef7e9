#include "log_record.h"

#include "base/utf8.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>

namespace device_log {
namespace {

constexpr std::string_view kLevels[] = {"emergency", "alert",  "critical",    "error",
                                        "warning",   "notice", "information", "debug"};
constexpr std::string_view kEllipsis = "...";

// One character of a text, or one byte that is part of none.
struct Unit {
    std::size_t consumed;
    FixedText<2 * 4> escaped;  // "\xHH" twice: control characters have at most two bytes
    std::string_view original; // to be used when `escaped` is empty
};

void appendHex(Unit& unit, char byte) {
    char hex[5];
    std::snprintf(hex, sizeof hex, "\\x%02X",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    unit.escaped.append(hex);
}

// Returns the first character of `text`, which must not be empty; escaped if it is a control
// character, a backslash or one of `alsoEscaped`.
Unit nextUnit(std::string_view text, std::string_view alsoEscaped) {
    assert(!text.empty());
    constexpr std::string_view kShort[] = {"\n\\n", "\r\\r", "\t\\t", "\\\\\\"};
    Unit unit{1, {}, text.substr(0, 1)};
    const char first = text.front();
    for (const std::string_view pair : kShort) {
        if (pair.front() == first) {
            unit.escaped.append(pair.substr(1));
            return unit;
        }
    }
    const auto byte = static_cast<unsigned char>(first);
    if (byte >= 0x80) {
        const std::size_t length = base::utf8Length(text);
        const bool isControl =
            length == 2 && byte == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0;
        unit.consumed = std::max<std::size_t>(length, 1);
        unit.original = text.substr(0, unit.consumed);
        if (length != 0 && !isControl)
            return unit;
    } else if (byte >= 0x20 && byte != 0x7f && alsoEscaped.find(first) == std::string_view::npos) {
        return unit;
    }
    for (const char each : unit.original)
        appendHex(unit, each);
    return unit;
}

// Appends the escaped text. If it does not fit into `limit` bytes, it is cut between two units, and
// the ellipsis follows.
template <class Text>
void appendEscaped(Text& to, std::string_view text, std::size_t limit,
                   std::string_view alsoEscaped) {
    while (!text.empty()) {
        const Unit unit = nextUnit(text, alsoEscaped);
        const std::string_view piece = unit.escaped.empty() ? unit.original : unit.escaped.view();
        if (to.size() + piece.size() > limit) {
            to.append(kEllipsis);
            return;
        }
        to.append(piece);
        text.remove_prefix(unit.consumed);
    }
}

} // namespace

EscapedText formatText(const char* format, va_list arguments) {
    assert(format != nullptr);
    // One byte more than the limit: for the newline that is dropped, or to see that the text is too
    // long. A character that is cut here would not fit in its escaped form either.
    char text[kMaxText + 1 + 1];
    const int wanted = std::vsnprintf(text, sizeof text, format, arguments);
    EscapedText escaped;
    if (wanted < 0) {
        escaped.append("(the text cannot be formatted)");
        return escaped;
    }
    std::size_t size = std::min(static_cast<std::size_t>(wanted), sizeof text - 1);
    if (size == static_cast<std::size_t>(wanted) && size > 0 && text[size - 1] == '\n')
        --size;
    appendEscaped(escaped, {text, size}, kMaxText, "");
    return escaped;
}

UserName escapeUser(const char* user) {
    UserName escaped;
    if (user != nullptr)
        appendEscaped(escaped, {user, ::strnlen(user, kMaxUser + 1)}, kMaxUser, " :");
    return escaped;
}

Record::Record(std::time_t time, int level, std::string_view module, const app_log_request& request,
               const UserName& user, const EscapedText& text) {
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    char timeText[32] = "";
    std::strftime(timeText, sizeof timeText, "%Y-%m-%dT%H:%M:%SZ ", &parts);
    m_line.append(timeText);
    m_line.append(kLevels[std::clamp(level, 0, 7)]);
    m_line.append(" ");
    m_messageBegin = m_line.size();
    m_line.append("[");
    m_line.append(module);
    m_line.append("]");
    if (request.number != 0) {
        char mark[64];
        std::snprintf(mark, sizeof mark, " thread=%d request=%lu", request.thread, request.number);
        m_line.append(mark);
    }
    if (!user.empty()) {
        m_line.append(" user=");
        m_line.append(user.view());
    }
    m_line.append(": ");
    m_line.append(text.view());
    m_line.append("\n");
}

std::string_view Record::message() const {
    const std::string_view whole = line();
    return whole.substr(m_messageBegin, whole.size() - m_messageBegin - 1);
}

} // namespace device_log
