// The list of names and values behind CGI_varlist.
#ifndef VARLIST_H
#define VARLIST_H

#include "cgi.h"
#include "decoding_limits.h"

#include <cstddef>
#include <exception>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Texts and arrays once handed out stay where they are until the list is destroyed.
struct CGI_varlist {
public:
    struct Value {
        std::string name;
        std::string text;
    };
    using Values = std::list<Value>;

    // `room` is the count of values it takes.
    explicit CGI_varlist(std::size_t room) : m_room(room) {}
    CGI_varlist(const CGI_varlist&) = delete;
    CGI_varlist& operator=(const CGI_varlist&) = delete;

    bool isEmpty() const { return m_values.empty(); }
    bool isFull() const { return m_room == 0; }
    // The count of values it still takes.
    std::size_t room() const { return m_room; }

    // Whether the list can hold it: its name is not empty and neither text holds a zero byte.
    static bool canHold(const std::string& name, const std::string& text);

    // Adds a value; one that the list cannot hold or has no room for is left out.
    void add(std::string name, std::string text);
    // Moves all of `values` behind its own. There must be room for them.
    void take(Values& values) noexcept;
    void take(CGI_varlist& other) noexcept { take(other.m_values); }

    // The first value of `name`, or null.
    char* first(const char* name);
    // All values of `name` and a null, or null when there is none.
    char** all(const char* name);

private:
    struct Array {
        std::string name;
        std::vector<char*> texts;
    };

    std::vector<char*> textsOf(const char* name);

    Values m_values;
    std::size_t m_room;
    std::list<Array> m_arrays;
};

namespace cgi {

// Gives back the list with what `fill` adds to it, all of it or nothing: `fill` gets an empty list
// with the room that is left. Null when there was no list and nothing was added. Nothing thrown by
// `fill`, such as std::bad_alloc, comes out.
template <class Fill>
CGI_varlist* addTo(CGI_varlist* list, Fill fill) {
    try {
        auto added = std::make_unique<CGI_varlist>(list != nullptr ? list->room() : kMaxValues);
        fill(*added);
        if (list == nullptr)
            return added->isEmpty() ? nullptr : added.release();
        list->take(*added);
    } catch (const std::exception&) {
        // The list stays as it was.
    }
    return list;
}

} // namespace cgi

#endif
