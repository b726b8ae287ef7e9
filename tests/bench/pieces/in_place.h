// The cheapest possible decoder: decoded bytes overwrite the text, and names and values point into
// it. Its rules are those of CGI_decode_query() and CGI_get_cookie().
#ifndef IN_PLACE_H
#define IN_PLACE_H

#include <cstddef>
#include <string_view>

namespace pieces {

class InPlacePairs {
public:
    static constexpr std::size_t kMaxPairs = 100;

    // Overwrites `text`, which must outlive this object.
    static InPlacePairs ofQuery(char* text);
    static InPlacePairs ofCookie(char* text);

    std::size_t size() const { return m_size; }
    const char* name(std::size_t number) const { return m_pairs[number].name; }
    const char* value(std::size_t number) const { return m_pairs[number].value; }
    // Returns the first value of `name`, or null.
    const char* find(const char* name) const;

private:
    struct Pair {
        const char* name;
        const char* value;
    };

    InPlacePairs() = default;
    void addCookie(char* begin, char* end);

    Pair m_pairs[kMaxPairs]; // the first m_size are set
    std::size_t m_size = 0;
};

} // namespace pieces

#endif
