// The values that a page is rendered with: variables, loops of rows, formats.
//
// Decisions that tmpl.h leaves open:
//   - A function that adds starts a list whenever it is given null, even when nothing is added.
//     Without memory it returns the list as it was.
//   - A null value ends the arguments of TMPL_add_var(), since nothing behind it can be read
//   safely.
//   - A row or loop that cannot be added (no name, no memory) is freed.
//   - A loop replaces the one added earlier under its name.
//   - A variable and a loop may have the same name.
//   - A format without a name or a function is not added. The built-in formats cannot be replaced,
//     so that a format list never turns escaping off.
#ifndef TMPL_VALUES_H
#define TMPL_VALUES_H

#include "tmpl.h"

#include "arena.h"
#include "base/name_key.h"
#include "base/short_text.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tmpl {

// A name to look up. A search compares keys first, and texts only if these are equal.
struct Name {
    Name() = default;
    explicit Name(std::string_view nameText) : text(nameText), key(base::nameKey(nameText)) {}

    bool operator==(const Name& other) const {
        return key == other.key && base::equalShort(text, other.text);
    }

    // Returns the name with its text copied to `place`, which has room for it.
    Name copiedTo(char* place) const {
        base::copyShort(place, text);
        Name copy;
        copy.text = {place, text.size()};
        copy.key = key;
        return copy;
    }

    std::string_view text;
    std::uint32_t key = 0;
};

// Frees `first` and the rows behind it with everything in them; null stands for no row. Takes no
// memory and does not recurse, however deep loops are nested.
void freeRows(TMPL_varlist* first);

struct FreeLoop {
    void operator()(TMPL_loop* loop) const;
};
using LoopOwner = std::unique_ptr<TMPL_loop, FreeLoop>;

} // namespace tmpl

struct TMPL_loop {
    explicit TMPL_loop(tmpl::Arena&& itsArena) : arena(std::move(itsArena)) {}
    TMPL_loop(const TMPL_loop&) = delete;
    TMPL_loop& operator=(const TMPL_loop&) = delete;

    // Appends the row, which the loop then owns; null stands for an empty row. Throws
    // std::bad_alloc, for an empty row only.
    void add(TMPL_varlist* row);

    tmpl::Arena arena; // the loop lies in it
    TMPL_varlist* firstRow = nullptr;
    TMPL_varlist* lastRow = nullptr;
};

struct TMPL_varlist {
public:
    explicit TMPL_varlist(tmpl::Arena&& itsArena) : arena(std::move(itsArena)) {}
    TMPL_varlist(const TMPL_varlist&) = delete;
    TMPL_varlist& operator=(const TMPL_varlist&) = delete;

    // Adds a variable or a loop, or replaces the one of that name. Copies the texts; nothing may be
    // null. Throws std::bad_alloc, which leaves the list as it was.
    void addVariable(const char* name, const char* value);
    void addLoop(const char* name, tmpl::LoopOwner loop);

    struct Variable {
        std::string_view value() const { return {text, size}; } // a zero byte follows it

        Variable* next;
        tmpl::Name name;
        char* text;
        std::size_t size;
        std::size_t capacity; // the largest size for which there is room at `text`
    };

    // Returns the variable of that name, or null.
    const Variable* variable(const tmpl::Name& name) const { return find(m_variables, name); }
    // Returns the loop of that name, or null.
    const TMPL_loop* loop(const tmpl::Name& name) const {
        const NamedLoop* const found = find(m_loops, name);
        return found != nullptr ? found->loop : nullptr;
    }

    tmpl::Arena arena; // the list lies in it
    // The next row of the loop that this row belongs to.
    TMPL_varlist* nextRow = nullptr;

private:
    friend void tmpl::freeRows(TMPL_varlist* first);

    struct NamedLoop {
        NamedLoop* next;
        tmpl::Name name;
        TMPL_loop* loop; // belongs to the list
    };

    // Lists are short, and rows have a few variables: a linear search is faster than a map and
    // takes less memory.
    template <class Entry>
    static Entry* find(Entry* first, const tmpl::Name& name) {
        while (first != nullptr && !(first->name == name))
            first = first->next;
        return first;
    }

    void setValue(Variable& variable, std::string_view value);

    // In any order: a name is there once.
    Variable* m_variables = nullptr;
    NamedLoop* m_loops = nullptr;
};

// Inline, since a page calls these for each of its variables and rows.

inline void TMPL_loop::add(TMPL_varlist* row) {
    if (row == nullptr)
        row = tmpl::makeInArena<TMPL_varlist>();
    if (lastRow != nullptr)
        lastRow->nextRow = row;
    else
        firstRow = row;
    lastRow = row;
}

[[gnu::always_inline]] inline void TMPL_varlist::addVariable(const char* name, const char* value) {
    assert(name != nullptr && value != nullptr);
    const tmpl::Name wanted(name);
    const std::string_view text(value);
    if (Variable* const known = find(m_variables, wanted))
        return setValue(*known, text);
    const std::size_t nameSize = wanted.text.size();
    void* const place = arena.take(sizeof(Variable) + nameSize + text.size() + 1);
    char* const itsName = static_cast<char*>(place) + sizeof(Variable);
    char* const itsText = itsName + nameSize;
    *base::copyShort(itsText, text) = '\0';
    m_variables = new (place)
        Variable{m_variables, wanted.copiedTo(itsName), itsText, text.size(), text.size()};
}

struct TMPL_fmtlist {
public:
    // Adds a format, or replaces the one of that name. Nothing may be null. Throws std::bad_alloc.
    void add(const char* name, TMPL_format format);
    // Returns the format of that name, or null.
    TMPL_format find(std::string_view name) const;

private:
    struct Format {
        std::string name;
        TMPL_format function;
    };

    std::vector<Format> m_formats;
};

#endif
