#include "varlist.h"

#include <cstring>

CGI_varlist::Owner CGI_varlist::makeWithBytes(std::size_t places, std::size_t bytes) {
    static_assert(alignof(Value) <= alignof(CGI_varlist), "values follow the list in memory");
    void* memory = ::operator new(sizeof(CGI_varlist) + places * sizeof(Value) + bytes);
    return Owner(new (memory) CGI_varlist(places));
}

CGI_varlist::Owner CGI_varlist::make(std::size_t places, std::string_view text) {
    Owner list = makeWithBytes(places, text.size() + 1);
    text.copy(list->text(), text.size());
    return list;
}

CGI_varlist::Owner CGI_varlist::ofOne(std::string_view name, std::string_view text) {
    assert(canHold(name, text));
    Owner list = makeWithBytes(1, name.size() + 1 + text.size() + 1);
    char* const nameCopy = list->text();
    char* const textCopy = nameCopy + name.size() + 1;
    name.copy(nameCopy, name.size());
    text.copy(textCopy, text.size());
    list->add({nameCopy, name.size()}, {textCopy, text.size()});
    return list;
}

void CGI_varlist::Free::operator()(CGI_varlist* list) const {
    while (list != nullptr) {
        CGI_varlist* const taken = list->m_next;
        list->~CGI_varlist();
        ::operator delete(list);
        list = taken;
    }
}

bool CGI_varlist::canHold(std::string_view name, std::string_view text) {
    return !name.empty() && name.find('\0') == std::string_view::npos &&
           text.find('\0') == std::string_view::npos;
}

void CGI_varlist::take(Owner other) noexcept {
    assert(other != nullptr);
    assert(other->size() <= room() && "there must be room for the values");
    m_total += other->m_total;
    m_last->m_next = other.get();
    m_last = other.release()->m_last;
}

char* CGI_varlist::first(const char* name) {
    const std::uint32_t key = base::nameKey(name);
    for (CGI_varlist* list = this; list != nullptr; list = list->m_next)
        for (const Value& value : *list)
            if (value.key == key && std::strcmp(value.name, name) == 0)
                return value.text;
    return nullptr;
}

char** CGI_varlist::all(const char* name) {
    std::vector<char*> texts = textsOf(name);
    if (texts.empty())
        return nullptr;
    texts.push_back(nullptr);
    // A new array is made only if values were added since the last call. The old one is kept: the
    // caller may still use it.
    for (Array& array : m_arrays)
        if (array.texts.size() == texts.size() && array.name == name)
            return array.texts.data();
    m_arrays.push_front({name, std::move(texts)});
    return m_arrays.front().texts.data();
}

std::vector<char*> CGI_varlist::textsOf(const char* name) {
    const std::uint32_t key = base::nameKey(name);
    std::vector<char*> texts;
    for (CGI_varlist* list = this; list != nullptr; list = list->m_next)
        for (const Value& value : *list)
            if (value.key == key && std::strcmp(value.name, name) == 0)
                texts.push_back(value.text);
    return texts;
}

char* CGI_lookup(CGI_varlist* list, const char* name) {
    return list != nullptr && name != nullptr ? list->first(name) : nullptr;
}

char** CGI_lookup_all(CGI_varlist* list, const char* name) {
    if (list == nullptr || name == nullptr)
        return nullptr;
    try {
        return list->all(name);
    } catch (const std::exception&) {
        return nullptr;
    }
}

void CGI_free_varlist(CGI_varlist* list) {
    CGI_varlist::Free()(list);
}
