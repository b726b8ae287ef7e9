#include "json_reader.h"

#include "kit/text.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace {

// The phone writes no other numbers.
bool isWholeNumber(const std::string& word) {
    const std::string digits = word.substr(word.rfind('-', 0) == 0 ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos &&
           (digits == "0" || digits[0] != '0');
}

class JsonReader {
public:
    explicit JsonReader(std::string_view rest) : m_rest(rest) {}

    std::map<std::string, std::string> read() {
        readValue("");
        skipBlanks();
        require(m_rest.empty(), "text after the value");
        return std::move(m_values);
    }

private:
    void require(bool fine, const char* what) const {
        if (!fine) {
            throw std::runtime_error(std::string("Invalid JSON: ") + what +
                                     " before: " + std::string(m_rest.substr(0, 40)));
        }
    }

    void skipBlanks() {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r\n"), m_rest.size()));
    }

    bool take(char wanted) {
        skipBlanks();
        if (m_rest.empty() || m_rest[0] != wanted) {
            return false;
        }
        m_rest.remove_prefix(1);
        return true;
    }

    void readValue(const std::string& path) {
        if (take('{')) {
            readMembers(path);
        } else if (take('[')) {
            readElements(path);
        } else if (take('"')) {
            m_values[path] = restOfString();
        } else {
            m_values[path] = readWord();
        }
    }

    void readMembers(const std::string& path) {
        if (take('}')) {
            return;
        }
        do {
            require(take('"'), "missing name");
            const std::string name = restOfString();
            require(take(':'), "missing colon");
            readValue(path.empty() ? name : path + "." + name);
        } while (take(','));
        require(take('}'), "unterminated object");
    }

    void readElements(const std::string& path) {
        if (take(']')) {
            return;
        }
        int index = 0;
        do {
            readValue(path + "[" + std::to_string(index++) + "]");
        } while (take(','));
        require(take(']'), "unterminated array");
    }

    std::string restOfString() {
        std::string text;
        while (!m_rest.empty() && m_rest[0] != '"') {
            const std::size_t length = kit::utf8Length(m_rest);
            require(length != 0, "invalid UTF-8");
            require(static_cast<unsigned char>(m_rest[0]) >= 0x20, "a control character");
            if (m_rest[0] == '\\') {
                text += readEscape();
            } else {
                text += m_rest.substr(0, length);
                m_rest.remove_prefix(length);
            }
        }
        require(!m_rest.empty(), "unterminated string");
        m_rest.remove_prefix(1);
        return text;
    }

    // Accepts \u0000 to \u007f and U+FFFD, the only escapes that the phone writes.
    std::string readEscape() {
        require(m_rest.size() >= 6 && m_rest[1] == 'u', "unsupported escape");
        const std::string digits(m_rest.substr(2, 4));
        require(digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos,
                "invalid digits");
        m_rest.remove_prefix(6);
        const int code = std::stoi(digits, nullptr, 16);
        require(code < 0x80 || code == 0xFFFD, "unnecessary escape");
        return code < 0x80 ? std::string(1, static_cast<char>(code)) : "\xEF\xBF\xBD";
    }

    std::string readWord() {
        skipBlanks();
        std::string word(m_rest.substr(0, m_rest.find_first_of(",]} \t\r\n")));
        require(word == "true" || word == "false" || word == "null" || isWholeNumber(word),
                "missing value");
        m_rest.remove_prefix(word.size());
        return word;
    }

    std::string_view m_rest;
    std::map<std::string, std::string> m_values;
};

} // namespace

std::map<std::string, std::string> readJson(const std::string& json) {
    return JsonReader(json).read();
}
