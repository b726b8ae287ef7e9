#include "configuration.h"

#include "base/ascii.h"
#include "request_rules.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <numeric>
#include <string_view>
#include <unordered_map>

#include <pugixml.hpp>

namespace {

// Converts the parser's offsets into line numbers. Offsets count bytes of UTF-8, whatever the
// file's encoding is.
class Lines {
public:
    Lines(std::string_view text, pugi::xml_encoding encoding) {
        const std::size_t size = unitSize(encoding);
        std::size_t offset = 0;
        for (std::size_t at = 0; at + size <= text.size(); at += size) {
            const std::uint32_t unit = unitAt(text.substr(at, size), encoding);
            if (unit == '\n')
                m_ends.push_back(offset);
            offset += encoding == pugi::encoding_utf8 ? 1 : sizeInUtf8(unit);
        }
    }

    unsigned at(std::ptrdiff_t offset) const {
        const auto next =
            std::lower_bound(m_ends.begin(), m_ends.end(),
                             static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0)));
        return static_cast<unsigned>(next - m_ends.begin()) + 1;
    }

private:
    static std::size_t unitSize(pugi::xml_encoding encoding) {
        switch (encoding) {
        case pugi::encoding_utf16_le:
        case pugi::encoding_utf16_be:
            return 2;
        case pugi::encoding_utf32_le:
        case pugi::encoding_utf32_be:
            return 4;
        default:
            return 1;
        }
    }

    static std::uint32_t unitAt(std::string_view bytes, pugi::xml_encoding encoding) {
        const bool isLittleEndian =
            encoding == pugi::encoding_utf16_le || encoding == pugi::encoding_utf32_le;
        std::uint32_t unit = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            unit = unit << 8U |
                   static_cast<unsigned char>(bytes[isLittleEndian ? bytes.size() - 1 - i : i]);
        return unit;
    }

    static std::size_t sizeInUtf8(std::uint32_t unit) {
        const bool isSurrogate = unit >= 0xD800 && unit <= 0xDFFF;
        return unit < 0x80 ? 1 : unit < 0x800 || isSurrogate ? 2 : unit < 0x10000 ? 3 : 4;
    }

    std::vector<std::size_t> m_ends;
};

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), base::asciiLower);
    return text;
}

// Returns the Levenshtein distance: how many letters to replace, insert or delete.
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

using Names = std::initializer_list<const char*>;

// Returns `; did you mean "id"?` if `name` resembles a known name, else an empty text.
std::string suggestion(const std::string& name, Names known) {
    constexpr std::size_t kMaxLength = 40; // longer names are no typing errors
    if (name.size() > kMaxLength)
        return "";
    for (const std::string candidate : known)
        if (distance(lowered(name), candidate) <= std::min<std::size_t>(2, candidate.size() - 1))
            return "; did you mean " + quoted(candidate) + '?';
    return "";
}

std::string tag(const pugi::xml_node& node) {
    const std::string name = quoted(node.name());
    return '<' + name.substr(1, name.size() - 2) + '>';
}

std::string contentOf(const pugi::xml_node& node) {
    return node.type() == pugi::node_element ? tag(node) : "text";
}

class ConfigurationReader {
public:
    ConfigurationReader(Configuration& configuration, const Lines& lines, Findings& findings)
        : m_configuration(configuration), m_lines(lines), m_findings(findings) {}

    void read(const pugi::xml_document& document) {
        const pugi::xml_node root = document.first_child();
        if (!root) {
            problem(1, "there is no root element: the container logs \"PluginLoader::init() error "
                       "to get root element\", opens no library and creates no listener; fcgi_host "
                       "ends with status 78");
            return;
        }
        readRoot(root);
        for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling())
            child(node);
        for (pugi::xml_node node = root.next_sibling(); node; node = node.next_sibling())
            problem(line(node), contentOf(node) +
                                    " follows the root element: the container does not "
                                    "read it");
        checkUses();
    }

private:
    unsigned line(const pugi::xml_node& node) const { return m_lines.at(node.offset_debug()); }

    void problem(unsigned line, const std::string& message) {
        m_findings.problem(m_configuration.file, line, message);
    }

    void readRoot(const pugi::xml_node& root) {
        m_configuration.hasRoot = true;
        m_configuration.rootLine = line(root);
        m_configuration.library = root.attribute("path").as_string("");
        if (root.type() != pugi::node_element)
            problem(line(root), "the container treats this text as the root element");
        checkAttributes(root, {"path"});
        if (m_configuration.library.empty())
            problem(line(root), tag(root) +
                                    " has no \"path\": the container opens \"\", which is the host "
                                    "program itself where dlopen(3) accepts that; otherwise the "
                                    "process ends with status 255");
    }

    void child(const pugi::xml_node& node) {
        const std::string name = node.name();
        if (name == "servlet") {
            addServlet(node);
        } else if (name == "listener") {
            addListener(node);
        } else {
            const bool isElement = node.type() == pugi::node_element;
            problem(line(node),
                    contentOf(node) +
                        " is skipped: the container logs \"PluginLoader::init() find element "
                        "neither servlet nor listener\"" +
                        (isElement ? suggestion(name, {"servlet", "listener"}) : ""));
        }
    }

    void checkAttributes(const pugi::xml_node& node, Names known) {
        for (const pugi::xml_attribute attribute : node.attributes()) {
            const std::string name = attribute.name();
            const pugi::xml_attribute first = node.attribute(attribute.name());
            if (std::find(known.begin(), known.end(), name) == known.end())
                problem(line(node), "the attribute " + quoted(name) + " of " + tag(node) +
                                        " is ignored" + suggestion(name, known));
            else if (first != attribute)
                problem(line(node), "the attribute " + quoted(name) + " of " + tag(node) +
                                        " is repeated: the container uses the first, " +
                                        quoted(first.value()));
        }
    }

    void checkInside(const pugi::xml_node& node) {
        if (const pugi::xml_node inside = node.first_child())
            problem(line(inside), contentOf(inside) + " inside " + tag(node) +
                                      " is ignored: the container reads the children of the root "
                                      "element only");
    }

    void addServlet(const pugi::xml_node& node) {
        checkAttributes(node, {"id", "createfunction"});
        checkInside(node);
        const ServletElement servlet{node.attribute("id").as_string(""),
                                     node.attribute("createfunction").as_string(""), line(node)};
        if (servlet.createFunction.empty())
            problem(servlet.line, "servlet " + quoted(servlet.id) +
                                      " has no \"createfunction\": each request for it is answered "
                                      "with " +
                                      kUnknownPageAnswer +
                                      ", and the container logs \"Cannot load symbol create.\"");
        checkId(servlet);
        replaceOrAdd(servlet);
    }

    void replaceOrAdd(const ServletElement& servlet) {
        auto& servlets = m_configuration.servlets;
        const auto [place, isNew] = m_places.try_emplace(servlet.id, servlets.size());
        if (isNew) {
            servlets.push_back(servlet);
            return;
        }
        ServletElement& earlier = servlets[place->second];
        problem(servlet.line, "servlet " + quoted(servlet.id) + " replaces the one of line " +
                                  std::to_string(earlier.line) + ", " +
                                  quoted(earlier.createFunction));
        earlier = servlet;
    }

    // Applies the container's own rules for request parameters.
    void checkId(const ServletElement& servlet) {
        const std::string address = "/servlet?p=" + servlet.id;
        if (servlet.id.empty())
            problem(servlet.line,
                    std::string("a servlet without \"id\" is never called: a request whose "
                                "\"p\" is empty is answered with ") +
                        kUnknownPageAnswer);
        else if (rules::isIllegalValue(servlet.id.c_str(), false))
            problem(servlet.line, "servlet " + quoted(servlet.id) +
                                      " is never called: a request ends with 404 when its \"p\" "
                                      "contains anything but letters, digits, \"-\" and \"_\"");
        else if (rules::isIllegalUrl(address.c_str()))
            problem(servlet.line, "servlet " + quoted(servlet.id) +
                                      " cannot be requested: the container refuses " +
                                      quoted(address));
    }

    void addListener(const pugi::xml_node& node) {
        checkAttributes(node, {"createfunction"});
        checkInside(node);
        const ListenerElement listener{node.attribute("createfunction").as_string(""), line(node)};
        const auto [earlier, isNew] =
            m_listenerLines.try_emplace(listener.createFunction, listener.line);
        if (listener.createFunction.empty())
            problem(listener.line, "a listener has no \"createfunction\"");
        else if (!isNew)
            problem(listener.line, "listener " + quoted(listener.createFunction) +
                                       " repeats the one of line " +
                                       std::to_string(earlier->second) +
                                       ": the container creates both, and both see each request");
        m_configuration.listeners.push_back(listener);
    }

    // Reports functions that are used for a servlet and for a listener.
    void checkUses() {
        for (const ServletElement& servlet : m_configuration.servlets) {
            const auto listener = m_listenerLines.find(servlet.createFunction);
            if (listener != m_listenerLines.end() && !servlet.createFunction.empty())
                problem(servlet.line,
                        quoted(servlet.createFunction) + " creates servlet " + quoted(servlet.id) +
                            " here and the listener of line " + std::to_string(listener->second) +
                            ": the container calls one of them through the wrong interface");
        }
    }

    Configuration& m_configuration;
    const Lines& m_lines;
    Findings& m_findings;
    std::unordered_map<std::string, std::size_t> m_places;     // of servlets, by id
    std::unordered_map<std::string, unsigned> m_listenerLines; // by creation function
};

} // namespace

const ServletElement* Configuration::servlet(const std::string& id) const {
    const auto found = std::find_if(servlets.begin(), servlets.end(),
                                    [&](const ServletElement& other) { return other.id == id; });
    return found != servlets.end() ? &*found : nullptr;
}

Configuration readConfiguration(const std::string& file, const std::string& text,
                                Findings& findings) {
    Configuration configuration;
    configuration.file = file;
    pugi::xml_document document;
    const pugi::xml_parse_result result =
        document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_auto);
    const Lines lines(text, result.encoding);
    if (!result && result.status != pugi::status_no_document_element)
        findings.problem(file, lines.at(result.offset),
                         std::string("not well-formed XML (") + result.description() +
                             "): the container does not report this, and uses what it has read "
                             "before");
    ConfigurationReader(configuration, lines, findings).read(document);
    return configuration;
}
