// From the text of a template to its instructions.
//
// Where the description of the tags in tmpl.h leaves a choice:
//   - Only "<TMPL_" and "</TMPL_" begin a tag; everything else is text, HTML comments included, so
//     a tag inside a comment is a tag. A tag that begins so must be a known one.
//   - Between its parts a tag may hold any blanks, line ends too. <TMPL_VAR>, <TMPL_INCLUDE>,
//     <TMPL_ELSIF> and <TMPL_ELSE> may end in "/>".
//   - An attribute value ends at the next double quote; nothing in it is decoded.
//   - A default passes through the format as a value does.
//   - <TMPL_IF> on a name that no variable has, but a loop, is by whether the loop has rows.
//     With value="v", an absent variable counts as an empty one.
#ifndef TEMPLATE_PARSER_H
#define TEMPLATE_PARSER_H

#include "parsed_template.h"

#include <cstddef>
#include <memory>
#include <string>

namespace tmpl {

// A page is a few kilobytes; the bound keeps a stray file from taking the device's memory.
constexpr std::size_t kMaxTemplateSize = 1024 * 1024;
// Blocks inside each other in one file; more than a person can follow.
constexpr std::size_t kMaxNesting = 64;

// `file` names the template in messages and gives the folder of relative includes. Throws Fault
// and std::bad_alloc.
std::shared_ptr<const ParsedTemplate> parseTemplate(std::string file, std::string source);

} // namespace tmpl

#endif
