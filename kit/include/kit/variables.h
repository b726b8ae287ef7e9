// The variables of a template, out of ordinary C++ values.
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

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kit {

// Owns its list, loops and rows until they are handed over; freed on every way out. The value set
// last under a name wins. One thread at a time.
class Variables {
public:
    // Texts are copied, up to a zero byte if there is one. Templates escape them; nothing is
    // escaped here.
    Variables& set(const char* name, const std::string& value) & {
        m_list.reset(
            TMPL_add_var(m_list.release(), name, value.c_str(), static_cast<char*>(nullptr)));
        return *this;
    }
    Variables& set(const char* name, std::string_view value) & {
        return set(name, std::string(value));
    }
    // A null text sets nothing.
    Variables& set(const char* name, const char* value) & {
        return value ? set(name, std::string(value)) : *this;
    }
    // True is "1"; false sets nothing, so that <TMPL_IF> tells them apart. Numbers are written in
    // decimal.
    template <typename Value, typename = std::enable_if_t<std::is_arithmetic_v<Value>>>
    Variables& set(const char* name, Value value) & {
        if constexpr (std::is_same_v<Value, bool>) {
            return value ? set(name, std::string("1")) : *this;
        } else {
            return set(name, std::to_string(value));
        }
    }

    // A loop with one row for each element: `row` makes its variables.
    template <typename Elements, typename MakeRow>
    Variables& rows(const char* name, const Elements& elements, MakeRow row) & {
        Loop loop;
        for (const auto& element : elements) {
            loop.add(row(element));
        }
        m_list.reset(TMPL_add_loop(m_list.release(), name, loop.release()));
        return *this;
    }

    // The same on a temporary, so that a list can be made in one expression.
    template <typename Value>
    Variables&& set(const char* name, const Value& value) && {
        return std::move(set(name, value));
    }
    template <typename Elements, typename MakeRow>
    Variables&& rows(const char* name, const Elements& elements, MakeRow row) && {
        return std::move(rows(name, elements, std::move(row)));
    }

    // The list, null when nothing was set, which is the caller's from now on.
    TMPL_varlist* release() { return m_list.release(); }

private:
    struct Free {
        void operator()(TMPL_varlist* list) const { TMPL_free_varlist(list); }
    };

    // A loop has no free of its own: what is not handed over goes with a list.
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
