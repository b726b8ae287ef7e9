// Reads a page as its user sees it.
#ifndef PAGE_READER_H
#define PAGE_READER_H

#include <map>
#include <optional>
#include <string>
#include <vector>

// Understands the HTML of the phone's templates: attribute values are in double quotes, and every
// element that contains text has an end tag.
class PageReader {
public:
    explicit PageReader(const std::string& html);

    // Returns the visible text on one line, without drawings and <template> elements.
    std::string text() const;
    // Returns the text of the element with this id; empty if there is none.
    std::string textOf(const std::string& id) const;
    // Returns the value of a form field: the text of an input, "1" or "" for a check box, the
    // selected option of a list. Nothing if there is no such field.
    std::optional<std::string> field(const std::string& name) const;
    // Return whether the field is marked as invalid, and its error message.
    bool isMarked(const std::string& name) const;
    std::string error(const std::string& name) const { return textOf(name + "-error"); }
    // Return the message that a request succeeded, or that it failed.
    std::string done() const { return firstText("class", "good"); }
    std::string alert() const { return firstText("role", "alert"); }
    // Return attributes of the whole page.
    std::string language() const;
    std::string title() const;
    // Returns whether a link or form has this address.
    bool leadsTo(const std::string& address) const;

private:
    struct Tag {
        std::string name; // "/p" for an end tag
        std::map<std::string, std::string> attributes;
        std::string text; // up to the next tag
    };
    using Place = std::vector<Tag>::const_iterator;

    std::string textFrom(Place begin) const;
    std::string firstText(const std::string& attribute, const std::string& value) const;
    Place endOf(Place begin) const;
    Place findTag(const std::string& name) const;
    static bool holds(const Tag& tag, const std::string& attribute, const std::string& value);
    std::string choiceOf(Place list) const;
    std::optional<std::string> radio(const std::string& name) const;

    std::vector<Tag> m_tags;
};

#endif
