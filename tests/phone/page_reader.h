// Reads a page as the person in front of it does.
#ifndef PAGE_READER_H
#define PAGE_READER_H

#include <map>
#include <optional>
#include <string>
#include <vector>

// Of the HTML that the phone's templates are written in: attributes in double quotes, and every
// element that has a text with its end tag.
class PageReader {
public:
    explicit PageReader(const std::string& html);

    // All that is there to read, in one line: no drawings, nothing that waits for a script.
    std::string text() const;
    // The text of the element with this id; empty when there is none.
    std::string textOf(const std::string& id) const;
    // What a form's field holds: the text of an input, "1" or "" of a box, the choice of a list.
    // Nothing when there is no such field.
    std::optional<std::string> field(const std::string& name) const;
    // Whether the field is marked as wrong, and what is said beside it.
    bool isMarked(const std::string& name) const;
    std::string error(const std::string& name) const { return textOf(name + "-error"); }
    // What the page says about what was asked for: that it was done, or that it was not.
    std::string done() const { return firstText("class", "good"); }
    std::string alert() const { return firstText("role", "alert"); }
    // Attributes of the page as a whole.
    std::string language() const;
    std::string title() const;
    // Where its links and forms lead.
    bool leadsTo(const std::string& address) const;

private:
    struct Tag {
        std::string name; // "/p" of an end tag
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
