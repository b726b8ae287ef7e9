// Settings as the elements of an XML document.
#ifndef MODEL_SETTINGS_XML_H
#define MODEL_SETTINGS_XML_H

#include "model/settings.h"
#include "model/xml_writer.h"

#include <pugixml.hpp>
#include <string>

namespace phone {

// Parses `text`. An error of the field "config", or none; std::bad_alloc where it may be good.
Errors parseXml(std::string_view text, pugi::xml_document& document);

// The text of an element.
std::string textOf(const pugi::xml_node& element);

// Writes and reads the element "configuration". See configuration.h for what it holds, and for the
// errors; when there is any, nothing is set.
void writeSettings(XmlWriter& writer, const Settings& settings);
Errors readSettings(const pugi::xml_node& configuration, Settings& settings);

} // namespace phone

#endif
