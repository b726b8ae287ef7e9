// A text for objects of which there are many.
#ifndef MODEL_COMPACT_TEXT_H
#define MODEL_COMPACT_TEXT_H

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace phone {

// As std::string, of which an empty one takes 24 or 32 bytes, but the size of a pointer. Any bytes
// may be in it. Throws std::bad_alloc.
class CompactText {
public:
    CompactText() = default;
    CompactText(std::string_view text);
    CompactText(const std::string& text) : CompactText(std::string_view(text)) {}
    CompactText(const char* text) : CompactText(std::string_view(text)) {}
    CompactText(const CompactText& other) : CompactText(std::string_view(other)) {}
    CompactText(CompactText&&) noexcept = default;
    CompactText& operator=(const CompactText& other) { return *this = CompactText(other); }
    CompactText& operator=(CompactText&&) noexcept = default;
    ~CompactText() = default;

    // Valid until this text changes.
    operator std::string_view() const;

    bool empty() const { return !m_bytes; }
    std::string str() const { return std::string(std::string_view(*this)); }

    friend bool operator==(const CompactText& left, std::string_view right) {
        return std::string_view(left) == right;
    }
    friend std::ostream& operator<<(std::ostream& stream, const CompactText& text) {
        return stream << std::string_view(text);
    }

private:
    std::unique_ptr<char[]> m_bytes; // the size and the text; null if it is empty
};

} // namespace phone

#endif
