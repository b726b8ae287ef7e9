#include "json.h"

#include "kit/text.h"

#include <cstdio>

namespace phone {
namespace {

bool isEscaped(unsigned char c) {
    return c < 0x20 || c == 0x7F || c == '"' || c == '\\' || c == '<' || c == '>' || c == '&' ||
           c == '\'';
}

} // namespace

std::string jsonString(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) {
        const std::size_t length = kit::utf8Length(text);
        if (length == 0) {
            json += "\\ufffd";
        } else if (length == 1 && isEscaped(static_cast<unsigned char>(text[0]))) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(text[0]));
            json += escape;
        } else {
            json += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return json + "\"";
}

JsonObject& JsonObject::add(const char* name, std::string_view value) {
    return addJson(name, jsonString(value));
}

JsonObject& JsonObject::add(const char* name, std::uint64_t value) {
    return addJson(name, std::to_string(value));
}

JsonObject& JsonObject::add(const char* name, bool value) {
    return addJson(name, value ? "true" : "false");
}

JsonObject& JsonObject::addJson(const char* name, std::string_view json) {
    m_members += m_members.empty() ? "" : ",";
    m_members += jsonString(name) + ":";
    m_members += json;
    return *this;
}

} // namespace phone
