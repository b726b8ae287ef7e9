// Writes a page to a stream.
#ifndef TEMPLATE_RENDERER_H
#define TEMPLATE_RENDERER_H

#include "template_page.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace tmpl {

// Renders one page once, on one thread. Page, formats and variables must outlive it.
class Renderer {
public:
    // Does everything that can fail. Formats and variables may be null. Throws Fault for an unknown
    // format, and std::bad_alloc.
    Renderer(const Page& page, const TMPL_fmtlist* formats, const TMPL_varlist* variables);

    // Call once. Takes no memory, and stops when the stream takes no more. Throws only what one of
    // the caller's formats throws.
    void render(FCGX_Stream& out);

private:
    struct Escape;
    static const Escape kHtml;
    static const Escape kUrl;
    static const Escape kJs;

    struct Place {
        std::size_t file;
        std::size_t instruction;
    };

    void findFormats(const TMPL_fmtlist* formats);
    void run(const Instruction& instruction);
    void writeVariable(const Instruction& instruction);
    bool isTrue(const Instruction& condition) const;
    void beginLoop(const Instruction& instruction);
    void endLoop(const Instruction& instruction);
    void enterScope(const TMPL_varlist& variables);
    void enterInclude(const Instruction& instruction);

    const TMPL_varlist::Variable* variable(const Name& name) const;
    const TMPL_loop* loop(const Name& name) const;
    void write(std::string_view text);
    void writeThrough(std::string_view text);
    void writeCollected();
    // Writes at most INT_MAX bytes, which is as many as the stream takes at once.
    void put(std::string_view text);
    void writeEscaped(std::string_view text, const Escape& escape);

    const Page& m_page;
    FCGX_Stream* m_out = nullptr;
    bool m_broken = false; // the stream takes no more
    // Most pieces of a page have a few bytes; collected here, they need fewer calls of libfcgi.
    char m_collected[512];
    std::size_t m_collectedSize = 0;
    // For each file of the page, the functions of its custom formats.
    std::vector<std::vector<TMPL_format>> m_formats;
    Place m_place{0, 0};
    // Where to continue after each of the includes that are being rendered.
    std::vector<Place> m_returns;
    // The variables of the page, then the current row of each loop, from the outermost inwards.
    std::vector<const TMPL_varlist*> m_scopes;
};

} // namespace tmpl

#endif
