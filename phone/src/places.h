// Where the pages' files lie in the device's tree.
#ifndef PLACES_H
#define PLACES_H

#include <string>

namespace phone {

// The path of the page template `name`.
std::string templatePath(const char* name);

// Where an uploaded firmware image is put.
const char* firmwareImagePath();

} // namespace phone

#endif
