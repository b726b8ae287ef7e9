#include "template_model.h"

#include "escapes.h"

#include <cctype>
#include <strings.h>

namespace {

constexpr const char* kBlanks = " \t\r\n\f\v";

// Returns null if no scope has the variable.
const std::string* find(const std::vector<const fuzz::Scope*>& scopes, const std::string& name) {
    for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope)
        if ((*scope)->variables.count(name) > 0)
            return &(*scope)->variables.at(name);
    return nullptr;
}

std::vector<fuzz::Scope> rowsOf(const std::vector<const fuzz::Scope*>& scopes,
                                const std::string& name) {
    for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope)
        if ((*scope)->loops.count(name) > 0)
            return (*scope)->loops.at(name);
    return {};
}

std::string mapped(std::string text, int (*map)(int)) {
    for (char& letter : text)
        letter = static_cast<char>(map(static_cast<unsigned char>(letter)));
    return text;
}

} // namespace

// Renders up to the tag that ends the block or its branch, and reads that tag.
std::string fuzz::TemplateModel::block(const Scopes& scopes, bool shown) {
    std::string page;
    for (;;) {
        const std::size_t tagBegin = nextTag();
        if (shown)
            page += m_text.substr(m_at, tagBegin - m_at);
        m_at = tagBegin;
        if (tagBegin == m_text.size())
            return page;
        readTag();
        if (m_tag.name == "TMPL_VAR")
            page += shown ? variable(scopes) : "";
        else if (m_tag.name == "TMPL_IF")
            page += condition(scopes, shown);
        else if (m_tag.name == "TMPL_LOOP")
            page += loop(scopes, shown);
        else
            return page;
    }
}

std::string fuzz::TemplateModel::condition(const Scopes& scopes, bool shown) {
    std::string page;
    bool open = shown;
    while (m_tag.name != "/TMPL_IF") {
        const bool chosen = open && (m_tag.name == "TMPL_ELSE" || holds(scopes));
        open = open && !chosen;
        page += block(scopes, chosen);
    }
    return page;
}

std::string fuzz::TemplateModel::loop(const Scopes& scopes, bool shown) {
    const std::vector<Scope> rows = rowsOf(scopes, m_tag.attributes["name"]);
    if (!shown || rows.empty())
        return block(scopes, false);
    std::string page;
    const std::size_t begin = m_at;
    for (const Scope& row : rows) {
        Scopes inner = scopes;
        inner.push_back(&row);
        m_at = begin;
        page += block(inner, true);
    }
    return page;
}

std::string fuzz::TemplateModel::variable(const Scopes& scopes) const {
    const auto attribute = [this](const char* name) {
        const auto found = m_tag.attributes.find(name);
        return found != m_tag.attributes.end() ? found->second : "";
    };
    const std::string* value = find(scopes, attribute("name"));
    const std::string text = value != nullptr && !value->empty() ? *value : attribute("default");
    const std::string format = attribute("fmt");
    if (format == "length")
        return std::to_string(text.size());
    if (format == "url")
        return url(text);
    if (format == "js")
        return js(text);
    return format == "raw" ? text : html(text);
}

bool fuzz::TemplateModel::holds(const Scopes& scopes) const {
    const std::string& name = m_tag.attributes.at("name");
    const std::string* value = find(scopes, name);
    const auto wanted = m_tag.attributes.find("value");
    if (wanted != m_tag.attributes.end())
        return wanted->second == (value != nullptr ? *value : "");
    return value != nullptr ? !value->empty() : !rowsOf(scopes, name).empty();
}

std::size_t fuzz::TemplateModel::nextTag() const {
    for (std::size_t at = m_text.find('<', m_at); at != std::string::npos;
         at = m_text.find('<', at + 1))
        if (strncasecmp(&m_text[at], "<TMPL_", 6) == 0 ||
            strncasecmp(&m_text[at], "</TMPL_", 7) == 0)
            return at;
    return m_text.size();
}

void fuzz::TemplateModel::readTag() {
    const std::size_t nameEnd = m_text.find_first_of(std::string(kBlanks) + ">/", m_at + 2);
    m_tag = {mapped(m_text.substr(m_at + 1, nameEnd - m_at - 1), std::toupper), {}};
    m_at = m_text.find_first_not_of(kBlanks, nameEnd);
    while (m_text[m_at] != '>' && m_text[m_at] != '/') {
        const std::size_t end = m_text.find_first_of(std::string(kBlanks) + "=", m_at);
        const std::string name = mapped(m_text.substr(m_at, end - m_at), std::tolower);
        const std::size_t begin = m_text.find('"', end) + 1;
        const std::size_t quote = m_text.find('"', begin);
        m_tag.attributes[name] = m_text.substr(begin, quote - begin);
        m_at = m_text.find_first_not_of(kBlanks, quote + 1);
    }
    m_at = m_text.find('>', m_at) + 1;
}
