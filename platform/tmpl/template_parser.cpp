#include "template_parser.h"

#include "base/ascii.h"
#include "template_fault.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace tmpl {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\f\v";
// How much of a template's text a message quotes.
constexpr std::size_t kMaxQuoted = 60;

enum class TagKind { Var, If, Elsif, Else, EndIf, Loop, EndLoop, Include };
enum Attribute : std::size_t { AttributeName, AttributeValue, AttributeDefault, AttributeFmt };
constexpr std::array<std::string_view, 4> kAttributes = {"name", "value", "default", "fmt"};

constexpr unsigned bit(Attribute attribute) {
    return 1u << attribute;
}

struct TagRule {
    std::string_view spelling; // behind the "<"
    TagKind kind;
    unsigned attributes; // bits of those it may have; a name it may have it must have
    bool mayCloseItself;
};

constexpr TagRule kTagRules[] = {
    {"TMPL_VAR", TagKind::Var, bit(AttributeName) | bit(AttributeDefault) | bit(AttributeFmt),
     true},
    {"TMPL_IF", TagKind::If, bit(AttributeName) | bit(AttributeValue), false},
    {"TMPL_ELSIF", TagKind::Elsif, bit(AttributeName) | bit(AttributeValue), true},
    {"TMPL_ELSE", TagKind::Else, 0, true},
    {"/TMPL_IF", TagKind::EndIf, 0, false},
    {"TMPL_LOOP", TagKind::Loop, bit(AttributeName), false},
    {"/TMPL_LOOP", TagKind::EndLoop, 0, false},
    {"TMPL_INCLUDE", TagKind::Include, bit(AttributeName), true},
};

struct Tag {
    const TagRule* rule = nullptr;
    std::array<std::optional<std::string_view>, kAttributes.size()> attributes;
    std::size_t end = 0; // where the text goes on

    std::string_view text(Attribute attribute) const {
        return attributes[attribute].value_or(std::string_view());
    }
};

bool isNameByte(char byte) {
    return base::isAsciiLetter(byte) || base::isAsciiDigit(byte) || byte == '_' || byte == '-';
}

bool beginsTag(std::string_view text) {
    constexpr std::string_view kStart = "<TMPL_";
    constexpr std::string_view kEndStart = "</TMPL_";
    return base::equalsIgnoringCase(text.substr(0, kStart.size()), kStart) ||
           base::equalsIgnoringCase(text.substr(0, kEndStart.size()), kEndStart);
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    result += text.substr(0, kMaxQuoted);
    return result + (text.size() > kMaxQuoted ? "...\"" : "\"");
}

std::string spelling(std::string_view name) {
    std::string result = "<";
    result += name.substr(0, kMaxQuoted);
    return result + (name.size() > kMaxQuoted ? "...>" : ">");
}

// Reads one tag, from behind its "<" to behind its ">".
class TagReader {
public:
    TagReader(std::string& source, std::size_t begin, const Position& position)
        : m_source(source), m_at(begin), m_position(position) {}

    Tag read() {
        m_tag.rule = &readRule();
        while (!readEnd())
            readAttribute();
        if ((m_tag.rule->attributes & bit(AttributeName)) != 0 && m_tag.text(AttributeName).empty())
            fail(tagText() + " has no name");
        m_tag.end = m_at;
        return m_tag;
    }

private:
    [[noreturn]] void fail(std::string reason) const {
        throw Fault(Fault::Wrong, m_position, std::move(reason));
    }

    std::string tagText() const { return spelling(m_tag.rule->spelling); }

    char current() const {
        if (m_at >= m_source.size())
            fail(tagText() + " does not end");
        return m_source[m_at];
    }

    void skipBlanks() {
        m_at = std::min(m_source.find_first_not_of(kBlanks, m_at), m_source.size());
    }

    std::string_view readName() {
        const std::size_t begin = m_at;
        while (m_at < m_source.size() && isNameByte(m_source[m_at]))
            ++m_at;
        return std::string_view(m_source).substr(begin, m_at - begin);
    }

    const TagRule& readRule() {
        const std::size_t begin = m_at;
        if (m_source[m_at] == '/')
            ++m_at;
        readName();
        const auto name = std::string_view(m_source).substr(begin, m_at - begin);
        for (const TagRule& rule : kTagRules) {
            if (base::equalsIgnoringCase(rule.spelling, name))
                return rule;
        }
        fail("unknown tag " + spelling(name));
    }

    bool readEnd() {
        skipBlanks();
        if (current() == '/') {
            ++m_at;
            if (current() != '>')
                fail(tagText() + " holds a \"/\" that does not end it");
            if (!m_tag.rule->mayCloseItself)
                fail(tagText() + " cannot end in \"/>\"");
        }
        if (current() != '>')
            return false;
        ++m_at;
        return true;
    }

    void readAttribute() {
        const std::string_view name = readName();
        if (name.empty())
            fail(tagText() + " holds " + quoted({&m_source[m_at], 1}) +
                 " where an attribute should stand");
        const Attribute attribute = known(name);
        if (m_tag.attributes[attribute])
            fail(tagText() + " has the attribute " + quoted(name) + " twice");
        m_tag.attributes[attribute] = readValue(name);
    }

    Attribute known(std::string_view name) const {
        for (std::size_t i = 0; i < kAttributes.size(); ++i) {
            const auto attribute = static_cast<Attribute>(i);
            if (base::equalsIgnoringCase(kAttributes[i], name) &&
                (m_tag.rule->attributes & bit(attribute)) != 0)
                return attribute;
        }
        fail(tagText() + " has no attribute " + quoted(name));
    }

    std::string_view readValue(std::string_view name) {
        skipBlanks();
        if (current() != '=')
            fail("the attribute " + quoted(name) + " of " + tagText() + " has no value");
        ++m_at;
        skipBlanks();
        if (current() != '"')
            fail("the attribute " + quoted(name) + " of " + tagText() +
                 " does not stand in double quotes");
        const std::size_t begin = ++m_at;
        m_at = std::min(m_source.find('"', begin), m_source.size());
        current();
        // A format of the caller takes a terminated text, and the quote is read for good.
        m_source[m_at] = '\0';
        return std::string_view(m_source).substr(begin, m_at++ - begin);
    }

    std::string& m_source;
    std::size_t m_at;
    const Position& m_position;
    Tag m_tag;
};

class Parser {
public:
    explicit Parser(ParsedTemplate& result) : m_result(result) {}

    void parse() {
        std::size_t textBegin = 0;
        for (;;) {
            const std::size_t tagBegin = findTag(textBegin);
            addText(textBegin, tagBegin);
            if (tagBegin == m_result.source.size())
                break;
            countLines(tagBegin);
            const Tag tag = TagReader(m_result.source, tagBegin + 1, position(m_line)).read();
            add(tag);
            textBegin = tag.end;
        }
        if (!m_blocks.empty())
            fail(m_blocks.back().line, spelling(m_blocks.back().tag) + " is not closed");
        m_result.instructions.shrink_to_fit();
    }

private:
    using Kind = Instruction::Kind;

    // An <TMPL_IF> or <TMPL_LOOP> that is still open.
    struct Block {
        std::string_view tag;
        unsigned line;
        std::uint32_t begin;   // the LoopBegin or the SkipUnless asked last
        bool elseSeen = false; // then `begin` is settled
        std::vector<std::uint32_t>
            endings; // jumps from the end of a branch to the end of the block
    };

    Position position(unsigned line) const { return {m_result.file, line}; }

    [[noreturn]] void fail(unsigned line, std::string reason) const {
        throw Fault(Fault::Wrong, position(line), std::move(reason));
    }

    std::size_t findTag(std::size_t from) const {
        const std::string_view source = m_result.source;
        std::size_t at = source.find('<', from);
        while (at != std::string_view::npos && !beginsTag(source.substr(at)))
            at = source.find('<', at + 1);
        return std::min(at, source.size());
    }

    void countLines(std::size_t to) {
        const auto& source = m_result.source;
        m_line += static_cast<unsigned>(
            std::count(source.data() + m_lineCountedTo, source.data() + to, '\n'));
        m_lineCountedTo = to;
    }

    std::uint32_t next() const { return static_cast<std::uint32_t>(m_result.instructions.size()); }

    Instruction& emit(Kind kind) {
        m_result.instructions.push_back({});
        m_result.instructions.back().kind = kind;
        return m_result.instructions.back();
    }

    void addText(std::size_t begin, std::size_t end) {
        if (begin < end)
            emit(Kind::Text).text = std::string_view(m_result.source).substr(begin, end - begin);
    }

    void add(const Tag& tag) {
        switch (tag.rule->kind) {
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
            m_blocks.back().elseSeen = true;
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
        variable.name = Name(tag.text(AttributeName));
        variable.text = tag.text(AttributeDefault);
        if (tag.attributes[AttributeFmt])
            setFormat(variable, tag.text(AttributeFmt));
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
            fail(m_line, "more than " + std::to_string(kMaxNesting) + " blocks inside each other");
        m_blocks.push_back({tag.rule->spelling, m_line, next(), false, {}});
    }

    void addCondition(const Tag& tag) {
        m_blocks.back().begin = next();
        Instruction& condition = emit(Kind::SkipUnless);
        condition.name = Name(tag.text(AttributeName));
        condition.compares = tag.attributes[AttributeValue].has_value();
        condition.text = tag.text(AttributeValue);
    }

    // The innermost block, which must be of the tag `wanted`.
    Block& innermost(const Tag& tag, std::string_view wanted) {
        if (m_blocks.empty())
            fail(m_line, spelling(tag.rule->spelling) + " without " + spelling(wanted));
        Block& block = m_blocks.back();
        if (block.tag != wanted)
            fail(m_line, spelling(tag.rule->spelling) + " inside the " + spelling(block.tag) +
                             " of line " + std::to_string(block.line));
        return block;
    }

    void beginBranch(const Tag& tag) {
        Block& block = innermost(tag, "TMPL_IF");
        if (block.elseSeen)
            fail(m_line, spelling(tag.rule->spelling) + " after <TMPL_ELSE>");
        block.endings.push_back(next());
        emit(Kind::Jump);
        m_result.instructions[block.begin].number = next();
    }

    void endIf(const Tag& tag) {
        const Block& block = innermost(tag, "TMPL_IF");
        if (!block.elseSeen)
            m_result.instructions[block.begin].number = next();
        for (const std::uint32_t ending : block.endings)
            m_result.instructions[ending].number = next();
        m_blocks.pop_back();
    }

    void beginLoop(const Tag& tag) {
        emit(Kind::LoopBegin).name = Name(tag.text(AttributeName));
        m_result.loopDepth = std::max(m_result.loopDepth, ++m_openLoops);
    }

    void endLoop(const Tag& tag) {
        const std::uint32_t begin = innermost(tag, "TMPL_LOOP").begin;
        emit(Kind::LoopEnd).number = begin + 1;
        m_result.instructions[begin].number = next();
        m_blocks.pop_back();
        --m_openLoops;
    }

    void addInclude(const Tag& tag) {
        const std::string_view name = tag.text(AttributeName);
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
    unsigned m_line = 1;
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
