// A model of the template renderer: renders a valid template while reading it, and reads the text
// of a loop again for each row.
#ifndef TEMPLATE_MODEL_H
#define TEMPLATE_MODEL_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace fuzz {

// The variables and loops of a page or a row.
struct Scope {
    std::map<std::string, std::string> variables;
    std::map<std::string, std::vector<Scope>> loops;
};

// Knows no includes. The format "length" writes the length of a value.
class TemplateModel {
public:
    // The text must outlive this object.
    explicit TemplateModel(const std::string& text) : m_text(text) {}

    std::string render(const Scope& page) { return block({&page}, true); }

private:
    // The page first, the innermost row last.
    using Scopes = std::vector<const Scope*>;

    struct Tag {
        std::string name; // in upper case
        std::map<std::string, std::string> attributes;
    };

    std::string block(const Scopes& scopes, bool shown);
    std::string condition(const Scopes& scopes, bool shown);
    std::string loop(const Scopes& scopes, bool shown);
    std::string variable(const Scopes& scopes) const;
    bool holds(const Scopes& scopes) const;
    std::size_t nextTag() const;
    void readTag();

    const std::string& m_text;
    std::size_t m_at = 0;
    Tag m_tag; // the last one read
};

} // namespace fuzz

#endif
