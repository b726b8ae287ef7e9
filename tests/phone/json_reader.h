// Reads JSON (RFC 8259) strictly, as far as the phone writes it: only whole numbers, and only the
// escapes \u0000 to \u007f and \ufffd.
#ifndef JSON_READER_H
#define JSON_READER_H

#include <map>
#include <string>

// Returns the values of a JSON text by path: {"a": [{"b": "x"}]} becomes {"a[0].b": "x"}. Numbers,
// true, false and null are returned as written. Throws std::runtime_error if the text is not JSON
// or not UTF-8.
std::map<std::string, std::string> readJson(const std::string& json);

#endif
