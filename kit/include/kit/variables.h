// The variables of a template.
//
//     response.show("lines.html", kit::Variables()
//         .set("model", phone.model())
//         .set("count", lines.size())
//         .rows("lines", lines, [](const Line& line) {
//             return kit::Variables().set("label", line.label).set("active", line.isActive());
//         }));
#ifndef KIT_VARIABLES_H
#define KIT_VARIABLES_H

#include "tmpl.h"

#include <cassert>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kit {

// Owns the variables, loops and rows until release(). The value set last under a name wins. Names
// must not be null; names and values are copied, up to a zero byte if they contain one.
//   Threads  one at a time.
class Variables {
public:
    // Sets a text. Do not escape it: the template does.
    Variables& set(const char* name, const std::string& value) & {
        assert(name && "names must not be null");
        m_list.reset(
            TMPL_add_var(m_list.release(), name, value.c_str(), static_cast<char*>(nullptr)));
        return *this;
    }
    Variables& set(const char* name, std::string_view value) & {
        return set(name, std::string(value));
    }
    // Sets a text; null sets nothing.
    Variables& set(const char* name, const char* value) & {
        return value ? set(name, std::string(value)) : *this;
    }
    // Sets a number in decimal. For <TMPL_IF>, true sets "1" and false sets nothing.
    template <typename Value, typename = std::enable_if_t<std::is_arithmetic_v<Value>>>
    Variables& set(const char* name, Value value) & {
        if constexpr (std::is_same_v<Value, bool>) {
            return value ? set(name, std::string("1")) : *this;
        } else {
            return set(name, std::to_string(value));
        }
    }

    // Adds a loop with one row for each element; `row(element)` returns the row's Variables.
    template <typename Elements, typename MakeRow>
    Variables& rows(const char* name, const Elements& elements, MakeRow row) & {
        assert(name && "names must not be null");
        Loop loop;
        for (const auto& element : elements) {
            loop.add(row(element));
        }
        m_list.reset(TMPL_add_loop(m_list.release(), name, loop.release()));
        return *this;
    }

    // The same on a temporary, so that one expression can build the list.
    template <typename Value>
    Variables&& set(const char* name, const Value& value) && {
        return std::move(set(name, value));
    }
    template <typename Elements, typename MakeRow>
    Variables&& rows(const char* name, const Elements& elements, MakeRow row) && {
        return std::move(rows(name, elements, std::move(row)));
    }

    // Returns the list, or null if nothing was set. The caller frees it with TMPL_free_varlist().
    TMPL_varlist* release() { return m_list.release(); }

private:
    struct Free {
        void operator()(TMPL_varlist* list) const { TMPL_free_varlist(list); }
    };

    // The device's library frees a loop only as a part of a list.
    class Loop {
    public:
        Loop() = default;
        Loop(const Loop&) = delete;
        Loop& operator=(const Loop&) = delete;
        ~Loop() { TMPL_free_varlist(m_loop ? TMPL_add_loop(nullptr, "", m_loop) : nullptr); }
        void add(Variables row) { m_loop = TMPL_add_row(m_loop, row.release()); }
        TMPL_loop* release() { return std::exchange(m_loop, nullptr); }

    private:
        TMPL_loop* m_loop = nullptr;
    };

    std::unique_ptr<TMPL_varlist, Free> m_list;
};

} // namespace kit

#endif
