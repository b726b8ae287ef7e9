// Writes a page to a stream.
#ifndef TEMPLATE_RENDERER_H
#define TEMPLATE_RENDERER_H

#include "template_page.h"

#include <cstddef>
#include <vector>

namespace tmpl {

// A place in a file of a page.
struct Place {
    std::size_t file;
    const Instruction* next;
};

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
    void findFormats(const TMPL_fmtlist* formats);

    const Page& m_page;
    bool m_hasRendered = false;
    // For each file of the page, the functions of its custom formats; empty if none has any.
    std::vector<std::vector<TMPL_format>> m_formats;
    // Where to continue after each of the includes that are being rendered.
    std::vector<Place> m_returns;
    // The variables of the page, then the current row of each loop, from the outermost inwards.
    std::vector<const TMPL_varlist*> m_scopes;
};

} // namespace tmpl

#endif
