#include "model/xml_writer.h"

#include "kit/text.h"

#include <algorithm>
#include <cassert>

namespace phone {
namespace {

[[maybe_unused]] bool isXmlText(std::string_view text) {
    std::string line(text);
    line.erase(std::remove(line.begin(), line.end(), '\n'), line.end());
    return kit::isPlainLine(line);
}

} // namespace

void XmlWriter::open(const char* name) {
    m_text.append("<").append(name).append(">\n");
}

void XmlWriter::close(const char* name) {
    m_text.append("</").append(name).append(">\n");
}

void XmlWriter::element(const char* name, std::string_view text) {
    assert(isXmlText(text) && "texts must be UTF-8 without control characters except line feeds");
    m_text.append("<").append(name).append(">");
    escaped(text);
    m_text.append("</").append(name).append(">\n");
}

void XmlWriter::escaped(std::string_view text) {
    for (char character : text) {
        switch (character) {
        case '&':
            m_text += "&amp;";
            break;
        case '<':
            m_text += "&lt;";
            break;
        case '>':
            m_text += "&gt;";
            break;
        default:
            m_text += character;
        }
    }
}

} // namespace phone
