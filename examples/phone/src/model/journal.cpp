#include "model/journal.h"

#include "base/utf8.h"
#include "kit/text.h"
#include "web_debug.h"

#include <cstdio>

namespace phone {
namespace {

// Returns the length of the character at the beginning of `text` if it must not be shown, else 0.
std::size_t hiddenLength(std::string_view text) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    if (byte(0) < 0x20 || byte(0) == 0x7f) {
        return 1;
    }
    if (byte(0) == 0xc2 && byte(1) < 0xa0) {
        return 2; // U+0080 to U+009F
    }
    // U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069
    const bool isMark =
        byte(0) == 0xe2 && byte(1) == 0x80 &&
        (byte(2) == 0x8e || byte(2) == 0x8f || (byte(2) >= 0xa8 && byte(2) <= 0xae));
    const bool isIsolate = byte(0) == 0xe2 && byte(1) == 0x81 && byte(2) >= 0xa6 && byte(2) <= 0xa9;
    return isMark || isIsolate ? 3 : 0;
}

std::string inHex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
        text += escape;
    }
    return text;
}

} // namespace

const char* nameOf(Severity severity) {
    switch (severity) {
    case Severity::error:
        return "error";
    case Severity::warning:
        return "warning";
    case Severity::info:
        break;
    }
    return "info";
}

std::string escapedLine(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const std::size_t length = base::utf8Length(text);
        const std::size_t hidden = length == 0 ? 1 : hiddenLength(text);
        const std::size_t taken = hidden != 0 ? hidden : length;
        if (hidden != 0) {
            line += inHex(text.substr(0, hidden));
        } else {
            line += text[0] == '\\' ? "\\\\" : text.substr(0, length);
        }
        text.remove_prefix(taken);
    }
    return line;
}

Journal* Journal::getInstance() {
    static Journal journal;
    return &journal;
}

void Journal::keep(Severity severity, const char* format, va_list arguments) noexcept {
    char text[kMaxText + 4]; // room for a character that is cut
    std::vsnprintf(text, sizeof text, format, arguments);
    using Writer = void (WebDebug::*)(const char*, ...);
    const Writer write = severity == Severity::error     ? &WebDebug::error
                         : severity == Severity::warning ? &WebDebug::warn
                                                         : &WebDebug::info;
    (WebDebug::getInstance()->*write)("%s", text);
    try {
        JournalEntry entry{std::time(nullptr), severity,
                           escapedLine(kit::shortened(text, kMaxText))};
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_entries.size() == kMaxEntries) {
            m_entries.pop_front();
        }
        m_entries.push_back(std::move(entry));
    } catch (...) {
        // The device's log has it.
    }
}

// NOLINTBEGIN(cert-dcl50-cpp): the arguments of printf(3)
void Journal::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(Severity::info, format, arguments);
    va_end(arguments);
}

void Journal::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(Severity::warning, format, arguments);
    va_end(arguments);
}

void Journal::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(Severity::error, format, arguments);
    va_end(arguments);
}
// NOLINTEND(cert-dcl50-cpp)

std::vector<JournalEntry> Journal::recent(Severity least, std::size_t most) const {
    std::vector<JournalEntry> found;
    const std::lock_guard<std::mutex> guard(m_lock);
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend() && found.size() < most;
         ++entry) {
        if (entry->severity <= least) {
            found.push_back(*entry);
        }
    }
    return found;
}

} // namespace phone
