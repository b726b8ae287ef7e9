// One template file, ready to be rendered.
#ifndef PARSED_TEMPLATE_H
#define PARSED_TEMPLATE_H

#include "tmpl_values.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tmpl {

enum class Format : std::uint8_t { Html, Raw, Url, Js, Custom };

// Blocks become jumps, so that rendering needs no recursion whatever the nesting.
struct Instruction {
    enum class Kind : std::uint8_t {
        Text,       // write `text`
        Variable,   // write the variable `name`, or `text` when it is absent or empty
        SkipUnless, // go to `number` unless `name` is set or, with `compares`, equals `text`
        Jump,       // go to `number`
        LoopBegin,  // enter the first row of the loop `name`; without rows go to `number`
        LoopEnd,    // enter the next row and go to `number`; after the last one go on
        Include,    // render the include `number`
    };

    Kind kind;
    Format format = Format::Html;
    bool compares = false;
    // What the kind says; for a Variable of a custom format the number of that format.
    std::uint32_t number = 0;
    Name name;
    // For a Variable a zero byte stands behind the text, for the formats of the caller.
    std::string_view text;
};

// Something outside the file that a line of it refers to.
struct Reference {
    std::string target;
    unsigned line;
};

// Never changes once it is parsed; any number of threads may render it.
struct ParsedTemplate {
    ParsedTemplate() = default;
    // The instructions point into `source`.
    ParsedTemplate(const ParsedTemplate&) = delete;
    ParsedTemplate& operator=(const ParsedTemplate&) = delete;

    // About how much memory it takes.
    std::size_t footprint() const {
        return sizeof *this + source.capacity() + instructions.capacity() * sizeof(Instruction) +
               (includes.capacity() + customFormats.capacity()) * sizeof(Reference);
    }

    std::string file; // as messages name it
    std::string source;
    std::vector<Instruction> instructions;
    std::vector<Reference> includes;      // paths, relative names already put behind the folder
    std::vector<Reference> customFormats; // names, each once with the first line that uses it
    unsigned loopDepth = 0;               // how many loops lie inside each other
};

} // namespace tmpl

#endif
