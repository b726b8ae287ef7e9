#include "varlist.h"

#include <algorithm>

bool CGI_varlist::canHold(const std::string& name, const std::string& text) {
    return !name.empty() && name.find('\0') == std::string::npos &&
           text.find('\0') == std::string::npos;
}

void CGI_varlist::add(std::string name, std::string text) {
    if (isFull() || !canHold(name, text))
        return;
    m_values.push_back({std::move(name), std::move(text)});
    --m_room;
}

void CGI_varlist::take(Values& values) noexcept {
    m_room -= values.size();
    m_values.splice(m_values.end(), values);
}

char* CGI_varlist::first(const char* name) {
    const auto found = std::find_if(m_values.begin(), m_values.end(),
                                    [name](const Value& value) { return value.name == name; });
    return found != m_values.end() ? found->text.data() : nullptr;
}

char** CGI_varlist::all(const char* name) {
    std::vector<char*> texts = textsOf(name);
    if (texts.empty())
        return nullptr;
    texts.push_back(nullptr);
    // An array is made anew only when values have come in between, and the old one is kept, since
    // someone may still hold it.
    for (Array& array : m_arrays)
        if (array.texts.size() == texts.size() && array.name == name)
            return array.texts.data();
    m_arrays.push_back({name, std::move(texts)});
    return m_arrays.back().texts.data();
}

std::vector<char*> CGI_varlist::textsOf(const char* name) {
    std::vector<char*> texts;
    for (Value& value : m_values)
        if (value.name == name)
            texts.push_back(value.text.data());
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
    delete list;
}
