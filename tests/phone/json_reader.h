// Reads JSON (RFC 8259) strictly, of the kinds that the phone writes: whole numbers, and of escapes
// \u0000 to \u007f and \ufffd.
#ifndef JSON_READER_H
#define JSON_READER_H

#include <map>
#include <string>

// The values of a JSON text by the way to them: {"a": [{"b": "x"}]} is {"a[0].b": "x"}. Numbers,
// true, false and null are as they are written.
//   Failure  std::runtime_error for anything that is not JSON, and for a text that is not UTF-8.
std::map<std::string, std::string> readJson(const std::string& json);

#endif
