// Writes JSON (RFC 8259).
#ifndef JSON_H
#define JSON_H

#include <cstdint>
#include <string>
#include <string_view>

namespace phone {

// Returns `text` in quotes. Replaces invalid UTF-8 by U+FFFD and escapes the characters that are
// special in HTML, so that the result is safe inside a page too.
std::string jsonString(std::string_view text);

// Builds one object, member by member, in order.
//
//     JsonObject().add("name", "x").add("size", 3).text()   returns   {"name":"x","size":3}
class JsonObject {
public:
    JsonObject& add(const char* name, std::string_view value);
    JsonObject& add(const char* name, const char* value) {
        return add(name, std::string_view(value));
    }
    JsonObject& add(const char* name, std::uint64_t value);
    JsonObject& add(const char* name, bool value);
    // Adds a value that is JSON already.
    JsonObject& addJson(const char* name, std::string_view json);

    std::string text() const { return "{" + m_members + "}"; }

private:
    std::string m_members;
};

// Returns the elements as an array; `toJson` returns the JSON of one element.
template <typename Elements, typename ToJson>
std::string jsonArray(const Elements& elements, ToJson toJson) {
    std::string text;
    for (const auto& element : elements) {
        text += (text.empty() ? "" : ",") + toJson(element);
    }
    return "[" + text + "]";
}

} // namespace phone

#endif
