#include "template_renderer.h"

#include "template_output.h"

#include <algorithm>
#include <cassert>
#include <string>

namespace tmpl {
namespace {

using Formats = std::vector<std::vector<TMPL_format>>;
using Scopes = std::vector<const TMPL_varlist*>;

// As Output::write(), it is needed for each variable of a page.
[[gnu::always_inline]] inline const TMPL_varlist::Variable* findVariable(const Scopes& scopes,
                                                                         const Name& name) {
    for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope) {
        if (const TMPL_varlist::Variable* found = (*scope)->variable(name))
            return found;
    }
    return nullptr;
}

const TMPL_loop* findLoop(const Scopes& scopes, const Name& name) {
    for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope) {
        if (const TMPL_loop* found = (*scope)->loop(name))
            return found;
    }
    return nullptr;
}

// Follows the instructions of a page. `returns` and `scopes` have all the memory that this takes.
class Run {
public:
    Run(const Page& page, const Formats& formats, std::vector<Place>& returns, Scopes& scopes,
        FCGX_Stream& out)
        : m_page(page), m_formats(formats), m_returns(returns), m_scopes(scopes), m_out(out),
          m_output(out) {
        enterFile(0);
    }

    void toTheEnd() {
        while (!m_hasEnded)
            follow(*m_next++);
        m_output.flush();
    }

private:
    using Kind = Instruction::Kind;

    void follow(const Instruction& instruction) {
        // Asked first, since most instructions are of these kinds.
        if (instruction.kind == Kind::Variable)
            return writeVariable(instruction);
        if (instruction.kind == Kind::Text)
            return m_output.write(instruction.text);
        followOther(instruction);
    }

    void followOther(const Instruction& instruction) {
        switch (instruction.kind) {
        case Kind::Text:
        case Kind::Variable:
            return;
        case Kind::SkipUnless:
            if (!isTrue(instruction))
                jump(instruction);
            return;
        case Kind::Jump:
            return jump(instruction);
        case Kind::LoopBegin:
            return beginLoop(instruction);
        case Kind::LoopEnd:
            return endLoop(instruction);
        case Kind::Include:
            return enterInclude(instruction);
        case Kind::End:
            return endFile();
        }
    }

    void writeVariable(const Instruction& instruction) {
        const TMPL_varlist::Variable* found = findVariable(m_scopes, instruction.name);
        const std::string_view text =
            found != nullptr && found->size != 0 ? found->value() : instruction.text;
        if (instruction.format == Format::Html) // as most are
            return m_output.writeEscaped<HtmlEscape>(text);
        writeFormatted(instruction, text);
    }

    void writeFormatted(const Instruction& instruction, std::string_view text) {
        switch (instruction.format) {
        case Format::Html:
            return m_output.writeEscaped<HtmlEscape>(text);
        case Format::Raw:
            return m_output.write(text);
        case Format::Url:
            return m_output.writeEscaped<UrlEscape>(text);
        case Format::Js:
            return m_output.writeEscaped<JsEscape>(text);
        case Format::Custom:
            m_output.flush();
            if (!m_output.isBroken())
                m_formats[m_file][instruction.number](text.data(), &m_out);
            return;
        }
    }

    bool isTrue(const Instruction& condition) const {
        const TMPL_varlist::Variable* found = findVariable(m_scopes, condition.name);
        if (condition.compares)
            return condition.text == (found != nullptr ? found->value() : std::string_view());
        if (found != nullptr)
            return found->size != 0;
        const TMPL_loop* rows = findLoop(m_scopes, condition.name);
        return rows != nullptr && rows->firstRow != nullptr;
    }

    void jump(const Instruction& instruction) { m_next = m_first + instruction.number; }

    void beginLoop(const Instruction& instruction) {
        const TMPL_loop* rows = findLoop(m_scopes, instruction.name);
        if (rows == nullptr || rows->firstRow == nullptr)
            return jump(instruction);
        assert(m_scopes.size() < m_scopes.capacity() && "takes no memory while rendering");
        m_scopes.push_back(rows->firstRow);
    }

    void endLoop(const Instruction& instruction) {
        const TMPL_varlist* const next = m_scopes.back()->nextRow;
        if (next == nullptr || m_output.isBroken())
            return m_scopes.pop_back();
        m_scopes.back() = next;
        jump(instruction);
    }

    void enterFile(std::size_t file) {
        m_file = file;
        m_first = m_next = m_page.file(file).parsed->instructions.data();
    }

    void enterInclude(const Instruction& instruction) {
        assert(m_returns.size() < m_returns.capacity() && "takes no memory while rendering");
        m_returns.push_back({m_file, m_next});
        enterFile(m_page.file(m_file).includes[instruction.number]);
    }

    void endFile() {
        m_hasEnded = m_returns.empty();
        if (m_hasEnded)
            return;
        enterFile(m_returns.back().file);
        m_next = m_returns.back().next;
        m_returns.pop_back();
    }

    const Page& m_page;
    const Formats& m_formats;
    std::vector<Place>& m_returns;
    Scopes& m_scopes;
    FCGX_Stream& m_out;
    Output m_output;
    bool m_hasEnded = false;
    std::size_t m_file = 0;
    const Instruction* m_first = nullptr; // of that file
    const Instruction* m_next = nullptr;
};

} // namespace

Renderer::Renderer(const Page& page, const TMPL_fmtlist* formats, const TMPL_varlist* variables)
    : m_page(page) {
    findFormats(formats);
    // Reserve all the memory that rendering needs, so that it cannot fail in the middle of a page.
    std::size_t loopDepth = 0;
    for (std::size_t i = 0; i < page.size(); ++i)
        loopDepth = std::max<std::size_t>(loopDepth, page.file(i).parsed->loopDepth);
    const std::size_t includeDepth = page.file(0).includeDepth;
    m_returns.reserve(includeDepth);
    m_scopes.reserve(1 + (includeDepth + 1) * loopDepth);
    if (variables != nullptr)
        m_scopes.push_back(variables);
}

void Renderer::findFormats(const TMPL_fmtlist* formats) {
    for (std::size_t i = 0; i < m_page.size(); ++i) {
        const ParsedTemplate& parsed = *m_page.file(i).parsed;
        if (!parsed.customFormats.empty())
            m_formats.resize(m_page.size());
        for (const Reference& used : parsed.customFormats) {
            const TMPL_format format = formats != nullptr ? formats->find(used.target) : nullptr;
            if (format == nullptr)
                throw Fault(Fault::Wrong, {parsed.file, used.line},
                            "unknown format \"" + used.target + "\"");
            m_formats[i].push_back(format);
        }
    }
}

void Renderer::render(FCGX_Stream& out) {
    assert(!m_hasRendered && "renders one page once");
    m_hasRendered = true;
    Run(m_page, m_formats, m_returns, m_scopes, out).toTheEnd();
}

} // namespace tmpl
