// Turns the text of a template into instructions.
//
// Decisions that the description of the tags in tmpl.h leaves open:
//   - Only "<TMPL_" and "</TMPL_" begin a tag, which must then be a known one. Everything else is
//     text, also HTML comments: a tag inside a comment is a tag.
//   - Blanks and line ends may separate the parts of a tag. <TMPL_VAR>, <TMPL_INCLUDE>,
//   <TMPL_ELSIF>
//     and <TMPL_ELSE> may end in "/>".
//   - An attribute value ends at the next double quote; nothing in it is decoded.
//   - A default is formatted like a value.
//   - <TMPL_IF> on a name that only a loop has is true if the loop has rows. With value="v", an
//     absent variable counts as an empty one.
#ifndef TEMPLATE_PARSER_H
#define TEMPLATE_PARSER_H

#include "parsed_template.h"

#include <cstddef>
#include <memory>
#include <string>

namespace tmpl {

// Bytes of a template. A page has a few kilobytes; the limit keeps a wrong file from using up the
// device's memory.
constexpr std::size_t kMaxTemplateSize = 1024 * 1024;
// How deep blocks may be nested in one file: deeper than a person can follow.
constexpr std::size_t kMaxNesting = 64;

// Returns the parsed `source`; never null. `file` is its name in messages, and its folder is that
// of relative includes. Throws Fault and std::bad_alloc.
std::shared_ptr<const ParsedTemplate> parseTemplate(std::string file, std::string source);

} // namespace tmpl

#endif
