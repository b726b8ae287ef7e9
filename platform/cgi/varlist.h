// The list of names and values behind CGI_varlist.
#ifndef VARLIST_H
#define VARLIST_H

#include "cgi.h"
#include "decoding_limits.h"

#include <cstddef>
#include <exception>
#include <forward_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

// One piece of memory holds the list, its values and their texts, since most lists are made of one
// small text, searched once and freed. What is to be added to a list is made as a list of its own,
// which the other one then takes as it is: so texts and arrays once handed out stay where they are
// until the list is destroyed.
struct CGI_varlist {
public:
    // Made and freed in a way of its own, since its values lie behind it.
    struct Free {
        void operator()(CGI_varlist* list) const;
    };
    using Owner = std::unique_ptr<CGI_varlist, Free>;

    // A list with places for so many values, and room for so many bytes of names and texts with
    // a terminator behind each. Throws std::bad_alloc.
    static Owner make(std::size_t places, std::size_t bytes);
    // A list of one value, which a list must be able to hold.
    static Owner make(std::string_view name, std::string_view text);
    CGI_varlist(const CGI_varlist&) = delete;
    CGI_varlist& operator=(const CGI_varlist&) = delete;

    // The count of its values, with those of the lists that it has taken.
    std::size_t size() const { return m_total; }
    // The count of values it may still take.
    std::size_t room() const { return cgi::kMaxValues - m_total; }

    // Whether a list can hold it: its name is not empty and neither text holds a zero byte.
    static bool canHold(std::string_view name, std::string_view text);

    // Whether all places are used.
    bool isFull() const { return m_size == m_places; }
    // Where the name of the next value is to be written. There must be a place left.
    char* nextName() { return m_free; }
    // Adds the value whose name and, one byte behind it, whose text have been written there. The
    // list must be able to hold it.
    void add(std::size_t nameSize, std::size_t textSize) {
        char* const name = m_free;
        char* const text = name + nameSize + 1;
        name[nameSize] = '\0';
        text[textSize] = '\0';
        new (end()) Value{name, text};
        ++m_size;
        ++m_total;
        m_free = text + textSize + 1;
    }

    // Puts the values of `other` behind its own. There must be room for them.
    void take(Owner other) noexcept;

    // The first value of `name`, or null.
    char* first(const char* name);
    // All values of `name` and a null, or null when there is none.
    char** all(const char* name);

private:
    struct Value {
        const char* name;
        char* text;
    };
    struct Array {
        std::string name;
        std::vector<char*> texts;
    };

    // The values lie behind the list, and the texts behind them.
    explicit CGI_varlist(std::size_t places)
        : m_places(places), m_free(reinterpret_cast<char*>(begin() + places)) {}

    ~CGI_varlist() = default;

    Value* begin() { return reinterpret_cast<Value*>(this + 1); }
    Value* end() { return begin() + m_size; }
    std::vector<char*> textsOf(const char* name);

    const std::size_t m_places;
    std::size_t m_size = 0;
    char* m_free;

    // The lists taken, one behind the other, each as it was.
    CGI_varlist* m_next = nullptr;
    CGI_varlist* m_last = this;
    std::size_t m_total = 0;

    std::forward_list<Array> m_arrays;
};

namespace cgi {

// Gives back the list with what `make` gives, all of it or nothing: `make` is told how many values
// there is room for, and gives a list with no more, or null. Null when there was no list and
// nothing was added. Nothing thrown by `make`, such as std::bad_alloc, comes out.
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
