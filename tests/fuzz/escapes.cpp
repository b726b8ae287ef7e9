#include "escapes.h"

#include <cstdio>

namespace {

std::string hex(const char* format, char byte) {
    char text[8];
    std::snprintf(text, sizeof text, format,
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text;
}

bool contains(char byte, const std::string& bytes) {
    return bytes.find(byte) != std::string::npos;
}

} // namespace

std::string fuzz::html(const std::string& text) {
    std::string result;
    for (const char byte : text) {
        if (byte == '&')
            result += "&amp;";
        else if (byte == '<')
            result += "&lt;";
        else if (byte == '>')
            result += "&gt;";
        else if (byte == '"')
            result += "&quot;";
        else if (byte == '\'')
            result += "&#39;";
        else
            result += byte;
    }
    return result;
}

std::string fuzz::url(const std::string& text) {
    std::string result;
    for (const char byte : text) {
        const bool isLetter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        result += isLetter || contains(byte, "0123456789-._~") ? std::string(1, byte)
                                                               : hex("%%%02X", byte);
    }
    return result;
}

std::string fuzz::js(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        const std::string three = text.substr(at, 3);
        if (three == "\xe2\x80\xa8" || three == "\xe2\x80\xa9") {
            result += three.back() == '\xa8' ? "\\u2028" : "\\u2029";
            at += 2;
        } else if (static_cast<unsigned char>(byte) < ' ' || contains(byte, "\\'\"`$<>&/\x7f")) {
            result += hex("\\u00%02X", byte);
        } else {
            result += byte;
        }
    }
    return result;
}
