// Helpers of all fuzzers. A fuzzer is one source file with one entry point, which receives
// arbitrary bytes and aborts the process if the code under test breaks its contract.
#ifndef FUZZ_H
#define FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// Aborts unless `holds`, which is how a fuzzer reports a finding.
inline void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

// Parses an input from the front.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size) {}
    // `text` must outlive this object.
    explicit Input(std::string_view text) : m_rest(text) {}

    bool isEmpty() const { return m_rest.empty(); }

    // Takes one byte; returns 0 when nothing is left.
    unsigned byte() {
        if (m_rest.empty())
            return 0;
        const auto byte = static_cast<unsigned char>(m_rest.front());
        m_rest.remove_prefix(1);
        return byte;
    }

    // Takes the text up to the next line feed, and the line feed.
    std::string line() { return upTo("\n"); }

    // Takes the text up to the next `end`, and `end`; without one, takes the rest.
    std::string upTo(std::string_view end) {
        const std::size_t size = m_rest.find(end);
        std::string text(m_rest.substr(0, size));
        m_rest.remove_prefix(size == std::string_view::npos ? m_rest.size() : size + end.size());
        return text;
    }

    std::string rest() { return std::string(std::exchange(m_rest, {})); }

private:
    std::string_view m_rest;
};

// Returns a copy with a terminator, in exactly that many bytes, so that a sanitizer sees an
// over-read.
inline std::unique_ptr<char[]> terminated(std::string_view text) {
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    text.copy(copy.get(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

// Returns the part of the text that a C function sees.
inline std::string upToZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

// Replaces each byte 1, at most 300 of them, by 4 KiB of one letter, so that short inputs reach the
// limits of the decoders.
inline std::string stretched(const std::string& text) {
    constexpr std::size_t kPieceSize = 4096;
    constexpr int kMaxPieces = 300;
    std::string result;
    int count = 0;
    for (const char byte : text) {
        if (byte == '\1' && ++count <= kMaxPieces)
            result.append(kPieceSize, 'x');
        else
            result += byte;
    }
    return result;
}

// Returns the text without leading and trailing blanks and tabs.
inline std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

} // namespace fuzz

#endif
