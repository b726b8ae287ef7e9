#include "template_renderer.h"

#include "base/ascii.h"

#include <fcgiapp.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <climits>
#include <string>

namespace tmpl {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// The text that replaces the first bytes of another one.
struct Replacement {
    char text[8];
    unsigned char size;         // 0: nothing is replaced
    unsigned char replaced = 1; // how many bytes
};

using Bytes = std::array<bool, 256>;

constexpr Bytes bytesThat(bool (*predicate)(unsigned char)) {
    Bytes bytes{};
    for (unsigned i = 0; i < bytes.size(); ++i)
        bytes[i] = predicate(static_cast<unsigned char>(i));
    return bytes;
}

constexpr bool isOneOf(std::string_view bytes, unsigned char byte) {
    return bytes.find(static_cast<char>(byte)) != std::string_view::npos;
}

constexpr bool isSpecialInHtml(unsigned char byte) {
    return isOneOf("&<>\"'", byte);
}

Replacement escapeHtml(std::string_view rest) {
    switch (rest.front()) {
    case '&':
        return {"&amp;", 5};
    case '<':
        return {"&lt;", 4};
    case '>':
        return {"&gt;", 4};
    case '"':
        return {"&quot;", 6};
    default:
        return {"&#39;", 5};
    }
}

// All but the unreserved characters of RFC 3986, section 2.3.
constexpr bool isSpecialInUrl(unsigned char byte) {
    const auto character = static_cast<char>(byte);
    return !base::isAsciiLetter(character) && !base::isAsciiDigit(character) &&
           !isOneOf("-._~", byte);
}

Replacement escapeUrl(std::string_view rest) {
    const auto byte = static_cast<unsigned char>(rest.front());
    return {{'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]}, 3};
}

// All that ends a string of any kind, begins an escape or a substitution in one, or means something
// to an HTML parser, which reads the script first. U+2028 and U+2029 end a line in older scripts.
constexpr unsigned char kFirstOfLineSeparators = 0xe2;
constexpr bool isSpecialInJs(unsigned char byte) {
    return byte < 0x20 || isOneOf("\\'\"`$<>&/\x7f", byte) || byte == kFirstOfLineSeparators;
}

Replacement escapeJs(std::string_view rest) {
    constexpr std::string_view kLineSeparator = "\xe2\x80\xa8";
    constexpr std::string_view kParagraphSeparator = "\xe2\x80\xa9";
    const auto byte = static_cast<unsigned char>(rest.front());
    if (byte != kFirstOfLineSeparators)
        return {{'\\', 'u', '0', '0', kHexDigits[byte >> 4], kHexDigits[byte & 15]}, 6};
    if (rest.substr(0, 3) == kLineSeparator)
        return {"\\u2028", 6, 3};
    if (rest.substr(0, 3) == kParagraphSeparator)
        return {"\\u2029", 6, 3};
    return {"", 0};
}

} // namespace

// How a built-in format escapes.
struct Renderer::Escape {
    Bytes special; // a table, since most bytes stay as they are
    // Returns what replaces the first bytes of `rest`, which must begin with a special byte.
    Replacement (*replacementOf)(std::string_view rest);
};

constexpr Renderer::Escape Renderer::kHtml = {bytesThat(isSpecialInHtml), escapeHtml};
constexpr Renderer::Escape Renderer::kUrl = {bytesThat(isSpecialInUrl), escapeUrl};
constexpr Renderer::Escape Renderer::kJs = {bytesThat(isSpecialInJs), escapeJs};

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
        enterScope(*variables);
}

void Renderer::findFormats(const TMPL_fmtlist* formats) {
    m_formats.resize(m_page.size());
    for (std::size_t i = 0; i < m_page.size(); ++i) {
        const ParsedTemplate& parsed = *m_page.file(i).parsed;
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
    assert(m_out == nullptr && "renders one page once");
    m_out = &out;
    while (!m_broken) {
        const auto& instructions = m_page.file(m_place.file).parsed->instructions;
        if (m_place.instruction < instructions.size()) {
            run(instructions[m_place.instruction++]);
        } else if (m_returns.empty()) {
            return writeCollected();
        } else {
            m_place = m_returns.back();
            m_returns.pop_back();
        }
    }
}

void Renderer::run(const Instruction& instruction) {
    switch (instruction.kind) {
    case Instruction::Kind::Text:
        return write(instruction.text);
    case Instruction::Kind::Variable:
        return writeVariable(instruction);
    case Instruction::Kind::SkipUnless:
        if (!isTrue(instruction))
            m_place.instruction = instruction.number;
        return;
    case Instruction::Kind::Jump:
        m_place.instruction = instruction.number;
        return;
    case Instruction::Kind::LoopBegin:
        return beginLoop(instruction);
    case Instruction::Kind::LoopEnd:
        return endLoop(instruction);
    case Instruction::Kind::Include:
        return enterInclude(instruction);
    }
}

void Renderer::writeVariable(const Instruction& instruction) {
    const TMPL_varlist::Variable* found = variable(instruction.name);
    std::string_view text = instruction.text;
    if (found != nullptr && found->size != 0)
        text = found->value();
    switch (instruction.format) {
    case Format::Html:
        return writeEscaped(text, kHtml);
    case Format::Raw:
        return write(text);
    case Format::Url:
        return writeEscaped(text, kUrl);
    case Format::Js:
        return writeEscaped(text, kJs);
    case Format::Custom:
        writeCollected();
        if (m_broken)
            return;
        return m_formats[m_place.file][instruction.number](text.empty() ? "" : text.data(), m_out);
    }
}

bool Renderer::isTrue(const Instruction& condition) const {
    const TMPL_varlist::Variable* found = variable(condition.name);
    if (condition.compares)
        return condition.text == (found != nullptr ? found->value() : std::string_view());
    if (found != nullptr)
        return found->size != 0;
    const TMPL_loop* rows = loop(condition.name);
    return rows != nullptr && rows->firstRow != nullptr;
}

void Renderer::beginLoop(const Instruction& instruction) {
    const TMPL_loop* rows = loop(instruction.name);
    if (rows != nullptr && rows->firstRow != nullptr)
        enterScope(*rows->firstRow);
    else
        m_place.instruction = instruction.number;
}

void Renderer::endLoop(const Instruction& instruction) {
    const TMPL_varlist* next = m_scopes.back()->nextRow;
    m_scopes.pop_back();
    if (next == nullptr)
        return;
    enterScope(*next);
    m_place.instruction = instruction.number;
}

void Renderer::enterScope(const TMPL_varlist& variables) {
    assert(m_scopes.size() < m_scopes.capacity() && "takes no memory while rendering");
    m_scopes.push_back(&variables);
}

void Renderer::enterInclude(const Instruction& instruction) {
    assert(m_returns.size() < m_returns.capacity() && "takes no memory while rendering");
    m_returns.push_back(m_place);
    m_place = {m_page.file(m_place.file).includes[instruction.number], 0};
}

const TMPL_varlist::Variable* Renderer::variable(const Name& name) const {
    for (auto scope = m_scopes.rbegin(); scope != m_scopes.rend(); ++scope) {
        if (const TMPL_varlist::Variable* found = (*scope)->variable(name))
            return found;
    }
    return nullptr;
}

const TMPL_loop* Renderer::loop(const Name& name) const {
    for (auto scope = m_scopes.rbegin(); scope != m_scopes.rend(); ++scope) {
        if (const TMPL_loop* found = (*scope)->loop(name))
            return found;
    }
    return nullptr;
}

void Renderer::write(std::string_view text) {
    if (text.size() > sizeof m_collected - m_collectedSize)
        return writeThrough(text);
    text.copy(m_collected + m_collectedSize, text.size());
    m_collectedSize += text.size();
}

void Renderer::writeThrough(std::string_view text) {
    writeCollected();
    if (text.size() <= sizeof m_collected)
        return write(text);
    for (; text.size() > INT_MAX; text.remove_prefix(INT_MAX))
        put(text.substr(0, INT_MAX));
    put(text);
}

void Renderer::writeCollected() {
    put({m_collected, m_collectedSize});
    m_collectedSize = 0;
}

void Renderer::put(std::string_view text) {
    if (!text.empty() && !m_broken)
        m_broken = FCGX_PutStr(text.data(), static_cast<int>(text.size()), m_out) < 0;
}

void Renderer::writeEscaped(std::string_view text, const Escape& escape) {
    std::size_t unwritten = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (!escape.special[static_cast<unsigned char>(text[at])]) {
            ++at;
            continue;
        }
        const Replacement replacement = escape.replacementOf(text.substr(at));
        if (replacement.size != 0) {
            write(text.substr(unwritten, at - unwritten));
            write({replacement.text, replacement.size});
            unwritten = at + replacement.replaced;
        }
        at += replacement.replaced;
    }
    write(text.substr(unwritten));
}

} // namespace tmpl
