// What a page is rendered with: variables, loops of rows, formats.
//
// Where tmpl.h leaves a choice:
//   - A function that adds starts a list whenever it is given none, even when there is nothing to
//     add. Without memory it gives back the list as it was.
//   - A variable whose value is null ends the arguments of TMPL_add_var and is not added: behind
//     it nothing safe can be read.
//   - A row or a loop handed over is taken in any case. One that cannot be added (no name, no
//     memory) is freed.
//   - A null loop is a loop without rows. A loop replaces one added earlier under its name.
//   - Variables and loops do not share their names: one of each may have the same. Names are
//     case-sensitive.
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

// A name to look up. The hash lets a search compare numbers, and texts only on a hit.
struct Name {
    Name() = default;
    explicit Name(std::string_view nameText);

    std::string_view text;
    std::uint32_t hash = 0;
};

// Frees the rows that begin with `first` and everything in them; null is no row. Takes neither
// memory nor a deeper stack, however deep loops lie in rows of loops.
void freeRows(TMPL_varlist* first);

} // namespace tmpl

struct TMPL_loop {
    TMPL_loop() = default;
    ~TMPL_loop() { tmpl::freeRows(firstRow); }
    TMPL_loop(const TMPL_loop&) = delete;
    TMPL_loop& operator=(const TMPL_loop&) = delete;

    // Takes the row; null is an empty row. Without memory for that one, std::bad_alloc.
    void add(TMPL_varlist* row);

    TMPL_varlist* firstRow = nullptr;
    TMPL_varlist* lastRow = nullptr;
};

struct TMPL_varlist {
public:
    TMPL_varlist() = default;
    TMPL_varlist(const TMPL_varlist&) = delete;
    TMPL_varlist& operator=(const TMPL_varlist&) = delete;

    // For so many variables that come next; std::bad_alloc.
    void makeRoom(std::size_t count);

    // Both copy the texts and replace what has the same name. std::bad_alloc leaves the list as it
    // was.
    void addVariable(const char* name, const char* value);
    void addLoop(const char* name, std::unique_ptr<TMPL_loop> loop);

    // Null when there is none.
    const std::string* variable(const tmpl::Name& name) const;
    const TMPL_loop* loop(const tmpl::Name& name) const;

    // The row behind this one in its loop.
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
    void add(const char* name, TMPL_format format);
    // Null when there is none.
    TMPL_format find(std::string_view name) const;

private:
    struct Format {
        std::string name;
        TMPL_format function;
    };

    std::vector<Format> m_formats;
};

#endif
