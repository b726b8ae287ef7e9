// A second, slow and obvious reader of imported settings. It knows the names of all parts and
// fields, and the values of the audio settings.
#ifndef SETTINGS_MODEL_H
#define SETTINGS_MODEL_H

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

// One element of a document with its fields.
struct SettingsPart {
    std::string name;
    std::vector<std::pair<std::string, std::string>> fields;
};
using SettingsParts = std::vector<SettingsPart>;

// Returns the document with these parts.
std::string documentOf(const SettingsParts& parts);

// Returns whether errorsIn() knows errors of the field.
bool isModelled(const std::string& field, const std::string& code);

// Returns the errors of these parts as "FIELD CODE"; `audio` has the values before the import, and
// gets those of the parts.
std::multiset<std::string> errorsIn(const SettingsParts& parts,
                                    std::map<std::string, std::string>& audio);

// Returns whether two valid values of an audio setting are the same.
bool isSameValue(const std::string& one, const std::string& other);

} // namespace fuzz

#endif
