// Input that is cut somewhere, and checks of the fields that are found in it.
#ifndef CGI_CUT_INPUT_H
#define CGI_CUT_INPUT_H

#include "cgi_list.h"
#include "varlist.h"

#include <fcgiapp.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Returns the places at which to cut a text of this size: all of them for a short text; those near
// the ends and some in between for a long one.
inline std::vector<std::size_t> cutsIn(std::size_t size) {
    if (size > 100000)
        return {size / 2};
    const std::size_t all = size > 3000 ? 15 : 200;
    const std::size_t step = size > 2 * all ? size / all : 1;
    std::vector<std::size_t> cuts;
    for (std::size_t at = 0; at < size;
         at += at < all || at + all >= size ? 1 : std::min(step, size - all - at))
        cuts.push_back(at);
    return cuts;
}

// A text that arrives in two pieces, each in memory of its exact size, so that a sanitizer detects
// reads beyond it.
class TwoPieces {
public:
    TwoPieces(const std::string& text, std::size_t cut)
        : m_first(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(cut)),
          m_second(text.begin() + static_cast<std::ptrdiff_t>(cut), text.end()) {
        m_stream.isReader = 1;
        m_stream.data = this;
        m_stream.fillBuffProc = [](FCGX_Stream* stream) {
            static_cast<TwoPieces*>(stream->data)->offerNext();
        };
        offer(m_first);
    }
    TwoPieces(const TwoPieces&) = delete;
    TwoPieces& operator=(const TwoPieces&) = delete;

    FCGX_Stream* stream() { return &m_stream; }

private:
    void offer(std::vector<unsigned char>& piece) {
        m_stream.rdNext = m_stream.stopUnget = piece.data();
        m_stream.stop = piece.data() + piece.size();
    }
    void offerNext() {
        if (!std::exchange(m_secondOffered, true) && !m_second.empty())
            offer(m_second);
        else
            m_stream.isClosed = 1;
    }

    std::vector<unsigned char> m_first;
    std::vector<unsigned char> m_second;
    bool m_secondOffered = false;
    FCGX_Stream m_stream{};
};

using ValuesByName = std::map<std::string, Texts>;

inline ValuesByName byName(const Pairs& fields) {
    ValuesByName values;
    for (const auto& [name, value] : fields)
        values[name].push_back(value);
    return values;
}

inline void expectFields(const Pairs& fields, const List& list) {
    EXPECT_EQ(fields.size(), list != nullptr ? list->size() : 0);
    for (const auto& [name, values] : byName(fields))
        EXPECT_EQ(values, valuesOf(list, name.c_str())) << name;
}

// Expects nothing in the list but the first fields of each name, in their order.
inline void expectNoOtherFields(const Pairs& fields, const List& list) {
    std::size_t found = 0;
    for (const auto& [name, values] : byName(fields)) {
        const Texts some = valuesOf(list, name.c_str());
        EXPECT_TRUE(some.size() <= values.size() &&
                    std::equal(some.begin(), some.end(), values.begin()))
            << name;
        found += some.size();
    }
    EXPECT_EQ(found, list != nullptr ? list->size() : 0);
}

#endif
