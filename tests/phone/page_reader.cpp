#include "page_reader.h"

#include <algorithm>

namespace {

constexpr const char* kBlanks = " \t\r\n";

std::string decoded(std::string text) {
    const std::pair<const char*, const char*> references[] = {
        {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
    for (const auto& [reference, character] : references) {
        const std::string from = reference;
        for (auto at = text.find(from); at != text.npos; at = text.find(from, at + 1)) {
            text.replace(at, from.size(), character);
        }
    }
    return text;
}

// Returns the words of the text, separated by single spaces.
std::string inOneLine(const std::string& text) {
    std::string line;
    for (auto at = text.find_first_not_of(kBlanks); at != text.npos;) {
        const auto end = std::min(text.find_first_of(kBlanks, at), text.size());
        line += (line.empty() ? "" : " ") + text.substr(at, end - at);
        at = text.find_first_not_of(kBlanks, end);
    }
    return line;
}

std::map<std::string, std::string> attributesOf(const std::string& tag, std::size_t at) {
    std::map<std::string, std::string> attributes;
    while ((at = tag.find_first_not_of(" \t\r\n/", at)) != tag.npos) {
        // One character at least, since what is no page is read too.
        const auto end = std::min(tag.find_first_of("= \t\r\n/", at + 1), tag.size());
        std::string& value = attributes[tag.substr(at, end - at)];
        at = end;
        if (tag.compare(at, 2, "=\"") == 0) {
            const auto close = std::min(tag.find('"', at + 2), tag.size() - 1);
            value = decoded(tag.substr(at + 2, close - at - 2));
            at = close + 1;
        }
    }
    return attributes;
}

// Returns whether the tag does not separate words or lines.
bool isInline(const std::string& name) {
    const auto element = name.substr(name.rfind('/', 0) == 0 ? 1 : 0);
    return element == "strong" || element == "span" || element == "b";
}

// Returns the end of the tag that begins at `at`; attribute values may contain ">".
std::size_t endOfTag(const std::string& html, std::size_t at) {
    bool quoted = false;
    while (at < html.size() && (quoted || html[at] != '>')) {
        quoted = quoted != (html[at] == '"');
        ++at;
    }
    return at;
}

} // namespace

PageReader::PageReader(const std::string& html) {
    for (auto at = html.find('<'); at != html.npos;) {
        const std::size_t end = endOfTag(html, at);
        const std::string tag = html.substr(at + 1, end - at - 1);
        const auto name = tag.substr(0, tag.find_first_of(kBlanks));
        at = html.find('<', end);
        const std::string text =
            end < html.size() ? html.substr(end + 1, std::min(at, html.size()) - end - 1) : "";
        m_tags.push_back({name, attributesOf(tag, name.size()), decoded(text)});
    }
}

bool PageReader::holds(const Tag& tag, const std::string& attribute, const std::string& value) {
    const auto found = tag.attributes.find(attribute);
    return found != tag.attributes.end() && found->second == value;
}

// Returns the position after the end tag of the element.
PageReader::Place PageReader::endOf(Place begin) const {
    int depth = 0;
    for (auto tag = begin; tag != m_tags.end(); ++tag) {
        depth += tag->name == begin->name ? 1 : tag->name == "/" + begin->name ? -1 : 0;
        if (depth == 0) {
            return tag;
        }
    }
    return m_tags.end();
}

std::string PageReader::textFrom(Place begin) const {
    std::string text;
    const Place end = begin == m_tags.end() ? begin : endOf(begin);
    for (auto tag = begin; tag != end; ++tag) {
        const bool isSeen = tag->name != "template" && tag->name != "svg" && tag->name != "head" &&
                            tag->attributes.count("hidden") == 0;
        if (!isSeen) {
            tag = endOf(tag);
            if (tag == end) {
                break;
            }
        }
        text += (isInline(tag->name) ? "" : " ") + tag->text;
    }
    return inOneLine(text);
}

std::string PageReader::text() const {
    return textFrom(findTag("html"));
}

PageReader::Place PageReader::findTag(const std::string& name) const {
    return std::find_if(m_tags.begin(), m_tags.end(),
                        [&](const Tag& tag) { return tag.name == name; });
}

std::string PageReader::firstText(const std::string& attribute, const std::string& value) const {
    return textFrom(std::find_if(m_tags.begin(), m_tags.end(),
                                 [&](const Tag& tag) { return holds(tag, attribute, value); }));
}

std::string PageReader::textOf(const std::string& id) const {
    return firstText("id", id);
}

std::string PageReader::choiceOf(Place list) const {
    const Place end = endOf(list);
    const Place chosen = std::find_if(
        list, end, [](const Tag& tag) { return tag.attributes.count("selected") != 0; });
    return chosen == end ? "" : chosen->attributes.at("value");
}

std::optional<std::string> PageReader::radio(const std::string& name) const {
    const auto chosen = std::find_if(m_tags.begin(), m_tags.end(), [&](const Tag& tag) {
        return holds(tag, "name", name) && tag.attributes.count("checked") != 0;
    });
    return chosen == m_tags.end() ? "" : chosen->attributes.at("value");
}

std::optional<std::string> PageReader::field(const std::string& name) const {
    for (auto tag = m_tags.begin(); tag != m_tags.end(); ++tag) {
        if (!holds(*tag, "name", name)) {
            continue;
        }
        if (tag->name == "select") {
            return choiceOf(tag);
        }
        if (tag->name == "textarea") {
            return tag->text.substr(tag->text.rfind('\n', 0) == 0 ? 1 : 0);
        }
        if (tag->name == "input" && holds(*tag, "type", "radio")) {
            return radio(name);
        }
        if (tag->name == "input" && holds(*tag, "type", "checkbox")) {
            return tag->attributes.count("checked") != 0 ? "1" : "";
        }
        if (tag->name == "input") {
            const auto value = tag->attributes.find("value");
            return value != tag->attributes.end() ? value->second : "";
        }
    }
    return std::nullopt;
}

bool PageReader::isMarked(const std::string& name) const {
    return std::any_of(m_tags.begin(), m_tags.end(), [&](const Tag& tag) {
        return holds(tag, "name", name) && holds(tag, "aria-invalid", "true");
    });
}

std::string PageReader::language() const {
    const Place html = findTag("html");
    return html == m_tags.end() || html->attributes.count("lang") == 0
               ? ""
               : html->attributes.at("lang");
}

std::string PageReader::title() const {
    return textFrom(findTag("h1"));
}

bool PageReader::leadsTo(const std::string& address) const {
    return std::any_of(m_tags.begin(), m_tags.end(), [&](const Tag& tag) {
        return holds(tag, "href", address) || holds(tag, "action", address);
    });
}
