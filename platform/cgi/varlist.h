// The list of names and values behind CGI_varlist.
#ifndef VARLIST_H
#define VARLIST_H

#include "base/name_key.h"
#include "cgi.h"
#include "decoding_limits.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <forward_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

// Most lists are made from one small text, searched once and freed. So the list, its values and
// their texts are one allocation. Values are added to an existing list by making a second list,
// which the first one then takes over as it is. So texts and arrays that were returned stay valid
// until the list is destroyed.
struct CGI_varlist {
public:
    // Custom deleter: list, values and texts are one allocation.
    struct Free {
        void operator()(CGI_varlist* list) const;
    };
    using Owner = std::unique_ptr<CGI_varlist, Free>;

    // Returns a list with room for `places` values and with a copy of `text`, in which their names
    // and texts are decoded in place. Throws std::bad_alloc.
    static Owner make(std::size_t places, std::string_view text);
    // Returns a list of one value, which must be one that a list can hold. Throws std::bad_alloc.
    static Owner ofOne(std::string_view name, std::string_view text);
    CGI_varlist(const CGI_varlist&) = delete;
    CGI_varlist& operator=(const CGI_varlist&) = delete;

    // Returns the count of values, including those of the lists that it has taken over.
    std::size_t size() const { return m_total; }
    // Returns how many more values the list may take over.
    std::size_t room() const { return cgi::kMaxValues - m_total; }

    // Returns whether a list can hold a value: its name is not empty, and neither name nor text has
    // a zero byte.
    static bool canHold(std::string_view name, std::string_view text);

    // Returns whether all places are used.
    bool isFull() const { return m_size == m_places; }
    // Returns the copy of the text.
    char* text() { return reinterpret_cast<char*>(begin() + m_places); }
    // Adds a value whose name and text are in text(), and writes a terminator behind each. There
    // must be a place left, and it must be a value that a list can hold.
    void add(std::string_view name, std::string_view value) {
        assert(!isFull() && "there must be a place left");
        assert(canHold(name, value));
        char* const nameText = text() + (name.data() - text());
        char* const valueText = text() + (value.data() - text());
        nameText[name.size()] = '\0';
        valueText[value.size()] = '\0';
        new (end()) Value{base::nameKey(name), nameText, valueText};
        ++m_size;
        ++m_total;
    }

    // Appends the values of `other`, which must not be null. There must be room for them.
    void take(Owner other) noexcept;

    // Returns the first value of `name`, or null.
    char* first(const char* name);
    // Returns all values of `name` with a null behind them, or null when there are none. Throws
    // std::bad_alloc.
    char** all(const char* name);

private:
    struct Value {
        std::uint32_t key; // base::nameKey(name)
        const char* name;
        char* text;
    };
    // An array that all() has returned.
    struct Array {
        std::string name;
        std::vector<char*> texts;
    };

    // In memory, the values follow the list, and the text follows the values.
    explicit CGI_varlist(std::size_t places) : m_places(places) {}

    ~CGI_varlist() = default;

    static Owner makeWithBytes(std::size_t places, std::size_t bytes);

    Value* begin() { return reinterpret_cast<Value*>(this + 1); }
    Value* end() { return begin() + m_size; }
    std::vector<char*> textsOf(const char* name);

    const std::size_t m_places;
    std::size_t m_size = 0;

    // The lists taken over, each linked to the next one.
    CGI_varlist* m_next = nullptr;
    CGI_varlist* m_last = this;
    std::size_t m_total = 0;

    std::forward_list<Array> m_arrays;
};

namespace cgi {

// Calls make(room), which returns a list of at most `room` values, or null, and appends these
// values to `list`. Returns the list to use from then on: null when `list` is null and nothing was
// added. Nothing is added when `make` throws; the exception ends here.
template <class Make>
CGI_varlist* addTo(CGI_varlist* list, Make make) {
    try {
        CGI_varlist::Owner added = make(list != nullptr ? list->room() : kMaxValues);
        if (added == nullptr || added->size() == 0)
            return list;
        if (list == nullptr)
            return added.release();
        list->take(std::move(added));
    } catch (const std::exception&) {
        // The list stays as it was.
    }
    return list;
}

} // namespace cgi

#endif
