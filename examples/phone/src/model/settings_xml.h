// Settings as XML elements.
#ifndef MODEL_SETTINGS_XML_H
#define MODEL_SETTINGS_XML_H

#include "model/settings.h"
#include "model/xml_writer.h"

#include <pugixml.hpp>
#include <string>

namespace phone {

// Parses `text`. Returns an error for the field "config", or none. Throws std::bad_alloc if memory
// runs out, since the text may be valid.
Errors parseXml(std::string_view text, pugi::xml_document& document);

// Returns the text of an element.
std::string textOf(const pugi::xml_node& element);

// Writes the element "configuration", see configuration.h for its contents. Omits the values that
// are those of `base`, if that is not null.
void writeSettings(XmlWriter& writer, const Settings& settings, const Settings* base = nullptr);

// Reads it. See configuration.h for the errors; if there is any, nothing is set.
Errors readSettings(const pugi::xml_node& configuration, Settings& settings);

} // namespace phone

#endif
