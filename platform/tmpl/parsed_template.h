// One template file as instructions, ready to be rendered.
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

// Blocks become jumps, so that rendering needs no recursion, however deep they are nested.
struct Instruction {
    enum class Kind : std::uint8_t {
        Text,       // write `text`
        Variable,   // write the variable `name`, or `text` when it is absent or empty
        SkipUnless, // go to `number` unless `name` is not empty or, with `compares`, equals `text`
        Jump,       // go to `number`
        LoopBegin,  // enter the first row of the loop `name`; without rows go to `number`
        LoopEnd,    // enter the next row and go to `number`; after the last row go on
        Include,    // render the include `number`
        End,        // go on behind the include of this file, or end the page; always the last one
    };

    Kind kind;
    Format format = Format::Html;
    bool compares = false;
    // See Kind; for a Variable with a custom format, the number of that format in customFormats.
    std::uint32_t number = 0;
    Name name;
    // In a Variable a zero byte follows the text: formats take a C string, and escaping ends there.
    std::string_view text;
};

// A name that the template refers to, and the line that does.
struct Reference {
    std::string target;
    unsigned line;
};

// Does not change once it is parsed, so any number of threads may render it.
struct ParsedTemplate {
    ParsedTemplate() = default;
    // Not to be copied: the instructions point into `source`.
    ParsedTemplate(const ParsedTemplate&) = delete;
    ParsedTemplate& operator=(const ParsedTemplate&) = delete;

    // Returns about how much memory it takes.
    std::size_t footprint() const {
        return sizeof *this + source.capacity() + instructions.capacity() * sizeof(Instruction) +
               (includes.capacity() + customFormats.capacity()) * sizeof(Reference);
    }

    std::string file; // as messages name it
    std::string source;
    std::vector<Instruction> instructions;
    std::vector<Reference> includes;      // paths; relative ones begin with this file's folder
    std::vector<Reference> customFormats; // each name once, with the first line that uses it
    unsigned loopDepth = 0;               // how deep loops are nested
};

} // namespace tmpl

#endif
