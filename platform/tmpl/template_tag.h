// One tag of a template.
#ifndef TEMPLATE_TAG_H
#define TEMPLATE_TAG_H

#include "template_fault.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tmpl {

enum class TagKind { Var, If, Elsif, Else, EndIf, Loop, EndLoop, Include };
enum class Attribute : std::size_t { Name, Value, Default, Format };
constexpr std::size_t kAttributeCount = 4;

struct Tag {
    TagKind kind;
    std::string_view spelling; // in capitals, without "<" and ">"
    std::array<std::optional<std::string_view>, kAttributeCount> attributes;
    std::size_t end = 0; // where the text continues

    bool has(Attribute attribute) const {
        return attributes[static_cast<std::size_t>(attribute)].has_value();
    }
    // Returns the attribute's value; empty when the tag does not have the attribute.
    std::string_view value(Attribute attribute) const {
        return attributes[static_cast<std::size_t>(attribute)].value_or(std::string_view());
    }
};

// Returns where the first tag at or behind `from` begins, or the size of `source`.
std::size_t findTag(std::string_view source, std::size_t from);

// Reads the tag that begins at `begin`, where findTag() must have found it. `position` is its place
// for messages. Values point into `source`, in which a zero byte replaces the quote behind each of
// them. Throws Fault and std::bad_alloc.
Tag readTag(std::string& source, std::size_t begin, const Position& position);

// Returns a tag's spelling in angle brackets, for messages; a long one is cut.
std::string inBrackets(std::string_view spelling);

} // namespace tmpl

#endif
