#ifndef UTF8_MODEL_H
#define UTF8_MODEL_H

#include <string>

namespace fuzz {

// Returns whether the text is well-formed UTF-8: decodes each character and looks at its number.
bool isUtf8Text(const std::string& text);

} // namespace fuzz

#endif
