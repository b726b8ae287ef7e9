#include "template_parser.h"

#include "template_fault.h"
#include "template_tag.h"

#include <algorithm>
#include <utility>

namespace tmpl {
namespace {

// Turns the text between tags, and the tags, into instructions. A jump gets its target when the
// next branch of its block begins or the block ends.
class Parser {
public:
    explicit Parser(ParsedTemplate& result) : m_result(result) {}

    void parse() {
        std::size_t textBegin = 0;
        for (;;) {
            const std::size_t tagBegin = findTag(m_result.source, textBegin);
            addText(textBegin, tagBegin);
            if (tagBegin == m_result.source.size())
                break;
            countLines(tagBegin);
            const Tag tag = readTag(m_result.source, tagBegin, position(m_line));
            add(tag);
            textBegin = tag.end;
        }
        if (!m_blocks.empty())
            fail(m_blocks.back().line, inBrackets(m_blocks.back().tag) + " is not closed");
        emit(Kind::End);
        m_result.instructions.shrink_to_fit();
    }

private:
    using Kind = Instruction::Kind;

    // A <TMPL_IF> or <TMPL_LOOP> that is still open.
    struct Block {
        std::string_view tag;
        unsigned line;
        // The number of its LoopBegin, or of its latest SkipUnless, whose target is not known yet.
        std::uint32_t begin;
        bool hasElse = false; // then the target of the SkipUnless is known
        // The numbers of the jumps from the end of a branch to the end of the block.
        std::vector<std::uint32_t> branchEnds;
    };

    Position position(unsigned line) const { return {m_result.file, line}; }

    [[noreturn]] void fail(unsigned line, std::string reason) const {
        throw Fault(Fault::Wrong, position(line), std::move(reason));
    }

    // Counts the lines up to the byte `to`.
    void countLines(std::size_t to) {
        const auto& source = m_result.source;
        m_line += static_cast<unsigned>(
            std::count(source.data() + m_lineCountedTo, source.data() + to, '\n'));
        m_lineCountedTo = to;
    }

    // Returns the number of the next instruction.
    std::uint32_t next() const { return static_cast<std::uint32_t>(m_result.instructions.size()); }

    Instruction& emit(Kind kind) {
        m_result.instructions.push_back({});
        m_result.instructions.back().kind = kind;
        return m_result.instructions.back();
    }

    // Sets the target of the instruction `number` to the next instruction.
    void targetHere(std::uint32_t number) { m_result.instructions[number].number = next(); }

    void addText(std::size_t begin, std::size_t end) {
        if (begin < end)
            emit(Kind::Text).text = std::string_view(m_result.source).substr(begin, end - begin);
    }

    void add(const Tag& tag) {
        switch (tag.kind) {
        case TagKind::Var:
            return addVariable(tag);
        case TagKind::If:
            open(tag);
            return addCondition(tag);
        case TagKind::Elsif:
            beginBranch(tag);
            return addCondition(tag);
        case TagKind::Else:
            beginBranch(tag);
            m_blocks.back().hasElse = true;
            return;
        case TagKind::EndIf:
            return endIf(tag);
        case TagKind::Loop:
            open(tag);
            return beginLoop(tag);
        case TagKind::EndLoop:
            return endLoop(tag);
        case TagKind::Include:
            return addInclude(tag);
        }
    }

    void addVariable(const Tag& tag) {
        Instruction& variable = emit(Kind::Variable);
        variable.name = Name(tag.value(Attribute::Name));
        variable.text = tag.has(Attribute::Default) ? tag.value(Attribute::Default) : "";
        if (tag.has(Attribute::Format))
            setFormat(variable, tag.value(Attribute::Format));
    }

    void setFormat(Instruction& variable, std::string_view name) {
        constexpr std::pair<std::string_view, Format> kBuiltIn[] = {
            {"html", Format::Html}, {"raw", Format::Raw}, {"url", Format::Url}, {"js", Format::Js}};
        for (const auto& [builtIn, format] : kBuiltIn) {
            if (name == builtIn) {
                variable.format = format;
                return;
            }
        }
        variable.format = Format::Custom;
        auto& formats = m_result.customFormats;
        const auto known = std::find_if(formats.begin(), formats.end(),
                                        [&](const Reference& used) { return used.target == name; });
        variable.number = static_cast<std::uint32_t>(known - formats.begin());
        if (known == formats.end())
            formats.push_back({std::string(name), m_line});
    }

    void open(const Tag& tag) {
        if (m_blocks.size() == kMaxNesting)
            fail(m_line, "blocks are nested more than " + std::to_string(kMaxNesting) + " deep");
        m_blocks.push_back({tag.spelling, m_line, next(), false, {}});
    }

    void addCondition(const Tag& tag) {
        m_blocks.back().begin = next();
        Instruction& condition = emit(Kind::SkipUnless);
        condition.name = Name(tag.value(Attribute::Name));
        condition.compares = tag.has(Attribute::Value);
        condition.text = tag.value(Attribute::Value);
    }

    // Returns the innermost block. It must be one of the tag `wanted`, or `tag` is at the wrong
    // place.
    Block& innermost(const Tag& tag, std::string_view wanted) {
        if (m_blocks.empty())
            fail(m_line, inBrackets(tag.spelling) + " without " + inBrackets(wanted));
        Block& block = m_blocks.back();
        if (block.tag != wanted)
            fail(m_line, inBrackets(tag.spelling) + " inside the " + inBrackets(block.tag) +
                             " of line " + std::to_string(block.line));
        return block;
    }

    void beginBranch(const Tag& tag) {
        Block& block = innermost(tag, "TMPL_IF");
        if (block.hasElse)
            fail(m_line, inBrackets(tag.spelling) + " after <TMPL_ELSE>");
        block.branchEnds.push_back(next());
        emit(Kind::Jump);
        targetHere(block.begin);
    }

    void endIf(const Tag& tag) {
        const Block& block = innermost(tag, "TMPL_IF");
        if (!block.hasElse)
            targetHere(block.begin);
        for (const std::uint32_t branchEnd : block.branchEnds)
            targetHere(branchEnd);
        m_blocks.pop_back();
    }

    void beginLoop(const Tag& tag) {
        emit(Kind::LoopBegin).name = Name(tag.value(Attribute::Name));
        m_result.loopDepth = std::max(m_result.loopDepth, ++m_openLoops);
    }

    void endLoop(const Tag& tag) {
        const std::uint32_t begin = innermost(tag, "TMPL_LOOP").begin;
        emit(Kind::LoopEnd).number = begin + 1;
        targetHere(begin);
        m_blocks.pop_back();
        --m_openLoops;
    }

    void addInclude(const Tag& tag) {
        const std::string_view name = tag.value(Attribute::Name);
        std::string path;
        if (name.front() != '/')
            path = m_result.file.substr(0, m_result.file.rfind('/') + 1);
        path += name;
        emit(Kind::Include).number = static_cast<std::uint32_t>(m_result.includes.size());
        m_result.includes.push_back({std::move(path), m_line});
    }

    ParsedTemplate& m_result;
    std::vector<Block> m_blocks;
    unsigned m_openLoops = 0;
    unsigned m_line = 1; // of the byte m_lineCountedTo
    std::size_t m_lineCountedTo = 0;
};

} // namespace

std::shared_ptr<const ParsedTemplate> parseTemplate(std::string file, std::string source) {
    if (source.size() > kMaxTemplateSize)
        throw Fault(Fault::Wrong, {std::move(file), 1},
                    "the template is larger than " + std::to_string(kMaxTemplateSize) + " bytes");
    auto result = std::make_shared<ParsedTemplate>();
    result->file = std::move(file);
    result->source = std::move(source);
    Parser(*result).parse();
    return result;
}

} // namespace tmpl
