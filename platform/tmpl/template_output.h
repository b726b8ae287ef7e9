// Writes the pieces of a page to a stream.
#ifndef TEMPLATE_OUTPUT_H
#define TEMPLATE_OUTPUT_H

#include "base/short_text.h"
#include "template_escapes.h"

#include <fcgiapp.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

namespace tmpl {

// Most pieces have a few bytes. They are collected in a buffer, so that they need fewer calls of
// libfcgi; call flush() at the end, and before anything else writes to the stream.
class Output {
public:
    explicit Output(FCGX_Stream& stream) : m_stream(stream) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Returns whether the stream takes no more. Then nothing is written any more.
    bool isBroken() const { return m_isBroken; }

    // Most of a page's time is spent here, so the compiler must not make it a call.
    [[gnu::always_inline]] void write(std::string_view text) {
        if (text.size() > kShort || m_free > std::end(m_collected) - kShort)
            return writeLong(text);
        m_free = base::copyShort(m_free, text);
    }

    // Writes `text` with its special bytes replaced. A zero byte must follow it.
    template <class Escape>
    void writeEscaped(std::string_view text) {
        const char* const end = text.data() + text.size();
        const char* const special = findSpecial<Escape>(text.data());
        if (special == end)
            return write(text);
        writeReplaced<Escape>(text.data(), special, end);
    }

    void flush() {
        put({m_collected, static_cast<std::size_t>(m_free - m_collected)});
        m_free = m_collected;
    }

private:
    static constexpr std::size_t kShort = 16; // bytes that copyShort() copies without a call

    std::size_t room() const { return static_cast<std::size_t>(std::end(m_collected) - m_free); }

    template <class Escape>
    static const char* findSpecial(const char* at) {
        while (!Escape::isSpecial[static_cast<unsigned char>(*at)])
            ++at;
        return at;
    }

    static std::string_view between(const char* begin, const char* end) {
        return {begin, static_cast<std::size_t>(end - begin)};
    }

    // Writes the text from `unwritten` to `end`; its first special byte is at `special`.
    template <class Escape>
    void writeReplaced(const char* unwritten, const char* special, const char* end) {
        while (special != end) {
            write(between(unwritten, special));
            if (room() < kMaxReplacement)
                flush();
            const Replaced replaced = Escape::replace(between(special, end), m_free);
            m_free += replaced.written;
            unwritten = special + replaced.read;
            special = findSpecial<Escape>(unwritten);
        }
        write(between(unwritten, end));
    }

    void writeLong(std::string_view text) {
        if (text.size() > room())
            flush();
        if (text.size() > sizeof m_collected)
            return writeThrough(text);
        std::memcpy(m_free, text.data(), text.size());
        m_free += text.size();
    }

    void writeThrough(std::string_view text) {
        for (; text.size() > INT_MAX; text.remove_prefix(INT_MAX))
            put(text.substr(0, INT_MAX));
        put(text);
    }

    // Writes at most INT_MAX bytes, which is as many as the stream takes at once.
    void put(std::string_view text) {
        if (!text.empty() && !m_isBroken)
            m_isBroken = FCGX_PutStr(text.data(), static_cast<int>(text.size()), &m_stream) < 0;
    }

    FCGX_Stream& m_stream;
    bool m_isBroken = false;
    char m_collected[512];
    char* m_free = m_collected;
};

} // namespace tmpl

#endif
