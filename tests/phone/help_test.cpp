// The help beside each field, in the templates of each language: a paragraph of the same template
// that the field names in aria-describedby, so that screen readers read it, too.
#include <gtest/gtest.h>

#include "model/temporary_folder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::array<const char*, 3> kLanguages{"en", "de", "zh"};

// Returns the template without the tags of the template language, which stand inside other tags.
std::string markupOf(const std::filesystem::path& path) {
    const std::string text = textOfFile(path);
    std::string markup;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t tag = std::min(text.find("<TMPL_", begin), text.find("</TMPL_", begin));
        markup += text.substr(begin, tag - begin);
        begin = tag == std::string::npos ? tag : text.find('>', tag) + 1;
    }
    return markup;
}

std::string attribute(const std::string& tag, const std::string& name) {
    const std::string opening = " " + name + "=\"";
    const std::size_t found = tag.find(opening);
    if (found == std::string::npos) {
        return {};
    }
    const std::size_t begin = found + opening.size();
    return tag.substr(begin, tag.find('"', begin) - begin);
}

// Returns the tags of the fields that a user sees.
std::vector<std::string> fieldsIn(const std::string& markup) {
    std::vector<std::string> fields;
    for (const char* opening : {"<input ", "<select ", "<textarea "}) {
        for (std::size_t begin = markup.find(opening); begin != std::string::npos;
             begin = markup.find(opening, begin + 1)) {
            std::string tag = markup.substr(begin, markup.find('>', begin) + 1 - begin);
            if (attribute(tag, "type") != "hidden") {
                fields.push_back(std::move(tag));
            }
        }
    }
    return fields;
}

// Returns the text of the first element whose tag contains `part`, up to its first tag inside.
std::string textAfter(const std::string& markup, const std::string& part) {
    const std::size_t found = markup.find(part);
    if (found == std::string::npos) {
        return {};
    }
    const std::size_t begin = markup.find('>', found) + 1;
    return markup.substr(begin, markup.find('<', begin) - begin);
}

// Returns the paragraphs that describe the field, without the one of its error.
std::string helpOf(const std::string& field, const std::string& markup) {
    std::istringstream ids(attribute(field, "aria-describedby"));
    std::string help;
    for (std::string id; ids >> id;) {
        if (id.find("-error") == std::string::npos) {
            help += textAfter(markup, "<p class=\"hint\" id=\"" + id + "\"");
        }
    }
    return help;
}

struct Help {
    std::string label;
    std::string text;
};

// Returns the help of every field by "TEMPLATE FIELD".
std::map<std::string, Help> helpIn(const std::string& language) {
    std::map<std::string, Help> found;
    const auto folder = std::filesystem::path(DEVICE_WWW) / "WEB-INFO/templates" / language;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string markup = markupOf(entry.path());
        for (const std::string& field : fieldsIn(markup)) {
            const std::string id = attribute(field, "id");
            EXPECT_NE(id, "") << entry.path() << ": " << field;
            found[entry.path().filename().string() + " " + id] = {
                textAfter(markup, "<label for=\"" + id + "\""), helpOf(field, markup)};
        }
    }
    return found;
}

} // namespace

TEST(HelpBesideAField, ExistsForEachFieldInEachLanguage) {
    const auto english = helpIn("en");
    EXPECT_GT(english.size(), 40u);
    for (const char* language : kLanguages) {
        const auto fields = helpIn(language);
        EXPECT_EQ(fields.size(), english.size()) << language;
        for (const auto& [field, help] : fields) {
            EXPECT_NE(help.label, "") << language << " " << field;
            EXPECT_NE(help.text.find_first_not_of(' '), std::string::npos)
                << language << ": no help beside " << field;
        }
    }
}

TEST(HelpBesideAField, DoesNotRepeatItsLabel) {
    for (const char* language : kLanguages) {
        for (const auto& [field, help] : helpIn(language)) {
            EXPECT_NE(help.text.compare(0, help.label.size(), help.label), 0)
                << language << ": begins with its label: " << field;
        }
    }
}

TEST(HelpBesideAField, IsTranslated) {
    const auto english = helpIn("en");
    for (const char* language : {"de", "zh"}) {
        for (const auto& [field, help] : helpIn(language)) {
            EXPECT_NE(help.text, english.at(field).text) << language << " " << field;
        }
    }
}
