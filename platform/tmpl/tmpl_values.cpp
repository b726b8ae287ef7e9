#include "tmpl_values.h"

#include <algorithm>
#include <cassert>

void tmpl::freeRows(TMPL_varlist* first) {
    while (first != nullptr) {
        TMPL_varlist* const list = first;
        first = list->nextRow;
        for (const auto* named = list->m_loops; named != nullptr; named = named->next) {
            TMPL_loop& loop = *named->loop;
            if (loop.firstRow != nullptr) {
                loop.lastRow->nextRow = first;
                first = loop.firstRow;
            }
            freeWithArena(&loop);
        }
        freeWithArena(list);
    }
}

void tmpl::FreeLoop::operator()(TMPL_loop* loop) const {
    freeRows(loop->firstRow);
    freeWithArena(loop);
}

void TMPL_varlist::setValue(Variable& variable, std::string_view value) {
    if (value.size() > variable.capacity) {
        // Doubled, since the arena keeps the old value: else a list that lives long and often gets
        // a longer value would grow without limit.
        const std::size_t capacity = std::max(value.size(), 2 * variable.capacity);
        variable.text = static_cast<char*>(arena.take(capacity + 1));
        variable.capacity = capacity;
    }
    *base::copyShort(variable.text, value) = '\0';
    variable.size = value.size();
}

void TMPL_varlist::addLoop(const char* name, tmpl::LoopOwner loop) {
    assert(name != nullptr && loop != nullptr);
    const tmpl::Name wanted{name};
    NamedLoop* const known = find(m_loops, wanted);
    if (known == nullptr) {
        void* const place = arena.take(sizeof(NamedLoop) + wanted.text.size());
        char* const itsName = static_cast<char*>(place) + sizeof(NamedLoop);
        m_loops = new (place) NamedLoop{m_loops, wanted.copiedTo(itsName), loop.release()};
    } else if (known->loop == loop.get()) {
        static_cast<void>(loop.release()); // it was added before, so the list owns it already
    } else {
        const tmpl::LoopOwner replaced(std::exchange(known->loop, loop.release()));
    }
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
