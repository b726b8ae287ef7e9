// A template that is known to be right, rendered while it is read: each loop reads its text again
// for each row.
#ifndef TEMPLATE_MODEL_H
#define TEMPLATE_MODEL_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace fuzz {

// What a page or a row is rendered with.
struct Scope {
    std::map<std::string, std::string> variables;
    std::map<std::string, std::vector<Scope>> loops;
};

// Without includes; the format "length" writes how long a value is.
class TemplateModel {
public:
    // The text must outlive this object.
    explicit TemplateModel(const std::string& text) : m_text(text) {}

    std::string render(const Scope& page) { return block({&page}, true); }

private:
    // From the innermost row outwards, backwards.
    using Scopes = std::vector<const Scope*>;

    struct Tag {
        std::string name; // in capital letters
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
    Tag m_tag; // the one read last
};

} // namespace fuzz

#endif
