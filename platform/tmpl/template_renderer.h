// Writes a page.
#ifndef TEMPLATE_RENDERER_H
#define TEMPLATE_RENDERER_H

#include "template_page.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace tmpl {

// Renders one page once, on one thread. Page, formats and variables outlive it.
class Renderer {
public:
    // Everything that can fail: Fault for a format that nobody knows, std::bad_alloc. Formats and
    // variables may be null.
    Renderer(const Page& page, const TMPL_fmtlist* formats, const TMPL_varlist* variables);

    // Stops when nothing more can be written. Throws only what a format of the caller throws.
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
    bool holds(const Instruction& condition) const;
    void beginLoop(const Instruction& instruction);
    void endLoop(const Instruction& instruction);
    void enterInclude(const Instruction& instruction);

    const std::string* variable(const Name& name) const;
    const TMPL_loop* loop(const Name& name) const;
    void write(std::string_view text);
    void writeThrough(std::string_view text);
    void writeCollected();
    // What the stream takes at once: at most INT_MAX bytes.
    void put(std::string_view text);
    void writeEscaped(std::string_view text, const Escape& escape);

    const Page& m_page;
    FCGX_Stream* m_out = nullptr;
    bool m_broken = false;
    // Most pieces of a page are a few bytes, each of which would be a call of the FastCGI kit.
    char m_collected[512];
    std::size_t m_collectedSize = 0;
    // For each file of the page the functions of its custom formats.
    std::vector<std::vector<TMPL_format>> m_formats;
    Place m_place{0, 0};
    // Where the including files go on.
    std::vector<Place> m_returns;
    // The variables of the page, and the current rows of the loops inside each other.
    std::vector<const TMPL_varlist*> m_scopes;
};

} // namespace tmpl

#endif
