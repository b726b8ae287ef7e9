// What all fuzzers are made of. Each is one source file with one entry point, which gets bytes that
// nobody chose, and ends the process where the code under test does not do as its header says.
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

// Ends the process, which is how a fuzzer tells that it has found something.
inline void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

// Takes an input apart, from the front.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size) {}
    // Which must outlive this object.
    explicit Input(std::string_view text) : m_rest(text) {}

    bool isEmpty() const { return m_rest.empty(); }

    // 0 when nothing is left.
    unsigned byte() {
        if (m_rest.empty())
            return 0;
        const auto byte = static_cast<unsigned char>(m_rest.front());
        m_rest.remove_prefix(1);
        return byte;
    }

    // The text up to the next line feed, which is taken too.
    std::string line() { return upTo("\n"); }

    // The text up to the next `end`, which is taken too, or all that is left.
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

// The text as C functions take it, without a byte behind its end that could be read unnoticed.
inline std::unique_ptr<char[]> terminated(std::string_view text) {
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    text.copy(copy.get(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

// What a C function sees of the text.
inline std::string upToZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

// Each byte 1 becomes 4 KiB of one letter, at most 1.2 MB of it, so that short inputs reach the
// limits of what is taken from clients.
inline std::string stretched(const std::string& text) {
    constexpr std::size_t kPiece = 4096;
    constexpr int kMost = 300;
    std::string result;
    int count = 0;
    for (const char byte : text) {
        if (byte == '\1' && ++count <= kMost)
            result.append(kPiece, 'x');
        else
            result += byte;
    }
    return result;
}

} // namespace fuzz

#endif
