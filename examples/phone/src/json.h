// Writing JSON (RFC 8259).
#ifndef JSON_H
#define JSON_H

#include <cstdint>
#include <string>
#include <string_view>

namespace phone {

// `text` in quotes. What is no UTF-8 becomes U+FFFD, and all that HTML gives a meaning to is
// escaped, so that the result is harmless inside a page too.
std::string jsonString(std::string_view text);

// Builds one object or array, member by member, in order.
//
//     JsonObject().add("name", "x").add("size", 3).text()   gives   {"name":"x","size":3}
class JsonObject {
public:
    JsonObject& add(const char* name, std::string_view value);
    JsonObject& add(const char* name, const char* value) {
        return add(name, std::string_view(value));
    }
    JsonObject& add(const char* name, std::uint64_t value);
    JsonObject& add(const char* name, bool value);
    // A value that is JSON already.
    JsonObject& addJson(const char* name, std::string_view json);

    std::string text() const { return "{" + m_members + "}"; }

private:
    std::string m_members;
};

// The elements, of which `toJson` makes JSON each, as an array.
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
