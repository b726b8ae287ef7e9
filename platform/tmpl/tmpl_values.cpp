#include "tmpl_values.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

// 32-bit FNV-1a.
std::uint32_t hashOf(std::string_view text) {
    std::uint32_t hash = 2166136261u;
    for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619u;
    return hash;
}

// Lists are short, and rows have a few variables: a linear search is faster than a map and takes
// less memory.
template <class Entries>
auto findByName(Entries& entries, const tmpl::Name& name) -> decltype(entries.data()) {
    for (auto& entry : entries) {
        if (entry.hash == name.hash && entry.name == name.text)
            return &entry;
    }
    return nullptr;
}

} // namespace

tmpl::Name::Name(std::string_view nameText) : text(nameText), hash(hashOf(nameText)) {}

void tmpl::freeRows(TMPL_varlist* first) {
    while (first != nullptr) {
        TMPL_varlist* list = first;
        first = list->nextRow;
        for (TMPL_varlist::NamedLoop& named : list->m_loops) {
            TMPL_loop& loop = *named.loop;
            if (loop.firstRow == nullptr)
                continue;
            loop.lastRow->nextRow = first;
            first = std::exchange(loop.firstRow, nullptr);
        }
        delete list;
    }
}

void TMPL_loop::add(TMPL_varlist* row) {
    if (row == nullptr)
        row = new TMPL_varlist;
    if (lastRow != nullptr)
        lastRow->nextRow = row;
    else
        firstRow = row;
    lastRow = row;
}

void TMPL_varlist::makeRoom(std::size_t count) {
    const std::size_t wanted = m_variables.size() + count;
    if (wanted > m_variables.capacity())
        m_variables.reserve(std::max(wanted, 2 * m_variables.capacity()));
}

void TMPL_varlist::addVariable(const char* name, const char* value) {
    assert(name != nullptr && value != nullptr);
    const tmpl::Name wanted{name};
    if (Variable* known = findByName(m_variables, wanted))
        known->value = value;
    else
        m_variables.push_back({wanted.hash, name, value});
}

void TMPL_varlist::addLoop(const char* name, std::unique_ptr<TMPL_loop> loop) {
    assert(name != nullptr && loop != nullptr);
    const tmpl::Name wanted{name};
    NamedLoop* known = findByName(m_loops, wanted);
    if (known != nullptr && known->loop == loop)
        static_cast<void>(loop.release()); // it was added before, so the list owns it already
    else if (known != nullptr)
        known->loop = std::move(loop);
    else
        m_loops.push_back({wanted.hash, name, std::move(loop)});
}

const std::string* TMPL_varlist::variable(const tmpl::Name& name) const {
    const Variable* found = findByName(m_variables, name);
    return found != nullptr ? &found->value : nullptr;
}

const TMPL_loop* TMPL_varlist::loop(const tmpl::Name& name) const {
    const NamedLoop* found = findByName(m_loops, name);
    return found != nullptr ? found->loop.get() : nullptr;
}

void TMPL_fmtlist::add(const char* name, TMPL_format format) {
    assert(name != nullptr && format != nullptr);
    for (Format& known : m_formats) {
        if (known.name == name) {
            known.function = format;
            return;
        }
    }
    m_formats.push_back({name, format});
}

TMPL_format TMPL_fmtlist::find(std::string_view name) const {
    for (const Format& known : m_formats) {
        if (known.name == name)
            return known.function;
    }
    return nullptr;
}
