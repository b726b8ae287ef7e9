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

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tmpl {

// A name to look up. A search compares hashes first, and texts only if these are equal.
struct Name {
    Name() = default;
    explicit Name(std::string_view nameText);

    std::string_view text;
    std::uint32_t hash = 0;
};

// Frees `first` and the rows behind it with everything in them; null stands for no row. Takes no
// memory and does not recurse, however deep loops are nested.
void freeRows(TMPL_varlist* first);

} // namespace tmpl

struct TMPL_loop {
    TMPL_loop() = default;
    ~TMPL_loop() { tmpl::freeRows(firstRow); }
    TMPL_loop(const TMPL_loop&) = delete;
    TMPL_loop& operator=(const TMPL_loop&) = delete;

    // Appends the row, which the loop then owns; null stands for an empty row. Throws
    // std::bad_alloc, for an empty row only.
    void add(TMPL_varlist* row);

    TMPL_varlist* firstRow = nullptr;
    TMPL_varlist* lastRow = nullptr;
};

struct TMPL_varlist {
public:
    TMPL_varlist() = default;
    TMPL_varlist(const TMPL_varlist&) = delete;
    TMPL_varlist& operator=(const TMPL_varlist&) = delete;

    // Reserves memory for `count` more variables. Throws std::bad_alloc.
    void makeRoom(std::size_t count);

    // Adds a variable or a loop, or replaces the one of that name. Copies the texts; nothing may be
    // null. Throws std::bad_alloc, which leaves the list as it was.
    void addVariable(const char* name, const char* value);
    void addLoop(const char* name, std::unique_ptr<TMPL_loop> loop);

    // Return the variable or the loop of that name, or null.
    const std::string* variable(const tmpl::Name& name) const;
    const TMPL_loop* loop(const tmpl::Name& name) const;

    // The next row of the loop that this row belongs to.
    TMPL_varlist* nextRow = nullptr;

private:
    friend void tmpl::freeRows(TMPL_varlist* first);

    struct Variable {
        std::uint32_t hash;
        std::string name;
        std::string value;
    };
    struct NamedLoop {
        std::uint32_t hash;
        std::string name;
        std::unique_ptr<TMPL_loop> loop;
    };

    std::vector<Variable> m_variables;
    std::vector<NamedLoop> m_loops;
};

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
