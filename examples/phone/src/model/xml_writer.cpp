#include "model/xml_writer.h"

namespace phone {

void XmlWriter::open(const char* name) {
    m_text.append("<").append(name).append(">\n");
}

void XmlWriter::close(const char* name) {
    m_text.append("</").append(name).append(">\n");
}

void XmlWriter::element(const char* name, std::string_view text) {
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
