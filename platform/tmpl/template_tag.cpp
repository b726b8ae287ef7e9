#include "template_tag.h"

#include "base/ascii.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace tmpl {
namespace {

// How much of a template's text a message quotes: enough to find it again, and still one line.
constexpr std::size_t kMaxQuoted = 60;

constexpr std::string_view kBlanks = " \t\r\n\f\v";

// The spellings, in the order of the enumeration.
constexpr std::array<std::string_view, kAttributeCount> kAttributes = {"name", "value", "default",
                                                                       "fmt"};

constexpr unsigned bit(Attribute attribute) {
    return 1u << static_cast<unsigned>(attribute);
}

constexpr unsigned kName = bit(Attribute::Name);
constexpr unsigned kValue = bit(Attribute::Value);
constexpr unsigned kDefault = bit(Attribute::Default);
constexpr unsigned kFormat = bit(Attribute::Format);

struct TagRule {
    std::string_view spelling; // behind the "<"
    TagKind kind;
    unsigned attributes; // the bits of those that it may have; a name is then required
    bool mayCloseItself; // may end in "/>"

    bool allows(Attribute attribute) const { return (attributes & bit(attribute)) != 0; }
};

constexpr TagRule kTagRules[] = {
    {"TMPL_VAR", TagKind::Var, kName | kDefault | kFormat, true},
    {"TMPL_IF", TagKind::If, kName | kValue, false},
    {"TMPL_ELSIF", TagKind::Elsif, kName | kValue, true},
    {"TMPL_ELSE", TagKind::Else, 0, true},
    {"/TMPL_IF", TagKind::EndIf, 0, false},
    {"TMPL_LOOP", TagKind::Loop, kName, false},
    {"/TMPL_LOOP", TagKind::EndLoop, 0, false},
    {"TMPL_INCLUDE", TagKind::Include, kName, true},
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

// Returns the text between `open` and `close`; a long one is cut.
std::string enclosed(char open, std::string_view text, char close) {
    std::string result(1, open);
    result += text.substr(0, kMaxQuoted);
    if (text.size() > kMaxQuoted)
        result += "...";
    return result + close;
}

std::string quoted(std::string_view text) {
    return enclosed('"', text, '"');
}

// Reads one tag, from behind its "<" to behind its ">".
class TagReader {
public:
    TagReader(std::string& source, std::size_t begin, const Position& position)
        : m_source(source), m_at(begin), m_position(position) {}

    Tag read() {
        m_rule = &readRule();
        m_tag.kind = m_rule->kind;
        m_tag.spelling = m_rule->spelling;
        while (!readEnd())
            readAttribute();
        if (m_rule->allows(Attribute::Name) && m_tag.value(Attribute::Name).empty())
            fail(tagText() + " has no name");
        m_tag.end = m_at;
        return m_tag;
    }

private:
    [[noreturn]] void fail(std::string reason) const {
        throw Fault(Fault::Wrong, m_position, std::move(reason));
    }

    std::string tagText() const { return inBrackets(m_rule->spelling); }

    // Returns the next byte, which the tag must still have.
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
        fail("unknown tag " + inBrackets(name));
    }

    // Reads the end of the tag. Returns false when there is an attribute instead.
    bool readEnd() {
        skipBlanks();
        if (current() == '/') {
            ++m_at;
            if (current() != '>')
                fail(tagText() + ": \"/\" is not followed by \">\"");
            if (!m_rule->mayCloseItself)
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
            fail(tagText() + ": expected an attribute name, found '" + m_source[m_at] + "'");
        auto& attribute = m_tag.attributes[static_cast<std::size_t>(attributeCalled(name))];
        if (attribute.has_value())
            fail(tagText() + " has the attribute " + quoted(name) + " twice");
        attribute = readValue(name);
    }

    Attribute attributeCalled(std::string_view name) const {
        for (std::size_t i = 0; i < kAttributeCount; ++i) {
            const auto attribute = static_cast<Attribute>(i);
            if (m_rule->allows(attribute) && base::equalsIgnoringCase(kAttributes[i], name))
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
            fail("the value of the attribute " + quoted(name) + " of " + tagText() +
                 " is not in double quotes");
        const std::size_t begin = ++m_at;
        m_at = std::min(m_source.find('"', begin), m_source.size());
        current(); // fails when there is no quote
        // The caller's formats get a terminated text. The quote is not needed any more.
        m_source[m_at] = '\0';
        return std::string_view(m_source).substr(begin, m_at++ - begin);
    }

    std::string& m_source;
    std::size_t m_at;
    const Position& m_position;
    const TagRule* m_rule = nullptr; // set once the tag's name has been read
    Tag m_tag{};
};

} // namespace

std::size_t findTag(std::string_view source, std::size_t from) {
    std::size_t at = source.find('<', from);
    while (at != std::string_view::npos && !beginsTag(source.substr(at)))
        at = source.find('<', at + 1);
    return std::min(at, source.size());
}

Tag readTag(std::string& source, std::size_t begin, const Position& position) {
    assert(findTag(source, begin) == begin);
    return TagReader(source, begin + 1, position).read();
}

std::string inBrackets(std::string_view spelling) {
    return enclosed('<', spelling, '>');
}

} // namespace tmpl
