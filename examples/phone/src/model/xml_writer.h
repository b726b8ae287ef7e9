// Writes XML as text. A library that builds a tree first does not report running out of memory
// half-way.
#ifndef MODEL_XML_WRITER_H
#define MODEL_XML_WRITER_H

#include <string>
#include <string_view>

namespace phone {

// Texts must be UTF-8 without control characters except line feeds. Names are not checked.
class XmlWriter {
public:
    void open(const char* name);
    void close(const char* name);
    void element(const char* name, std::string_view text);

    const std::string& text() const { return m_text; }

private:
    void escaped(std::string_view text);

    std::string m_text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
};

} // namespace phone

#endif
