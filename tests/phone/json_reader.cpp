#include "json_reader.h"

#include "kit/text.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace {

// The phone writes no others.
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
        require(m_rest.empty(), "something behind the value");
        return std::move(m_values);
    }

private:
    void require(bool fine, const char* what) const {
        if (!fine) {
            throw std::runtime_error(std::string("no JSON: ") + what +
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

    void readValue(const std::string& way) {
        if (take('{')) {
            readMembers(way);
        } else if (take('[')) {
            readElements(way);
        } else if (take('"')) {
            m_values[way] = restOfString();
        } else {
            m_values[way] = readWord();
        }
    }

    void readMembers(const std::string& way) {
        if (take('}')) {
            return;
        }
        do {
            require(take('"'), "no name");
            const std::string name = restOfString();
            require(take(':'), "no colon");
            readValue(way.empty() ? name : way + "." + name);
        } while (take(','));
        require(take('}'), "no end of an object");
    }

    void readElements(const std::string& way) {
        if (take(']')) {
            return;
        }
        int index = 0;
        do {
            readValue(way + "[" + std::to_string(index++) + "]");
        } while (take(','));
        require(take(']'), "no end of an array");
    }

    std::string restOfString() {
        std::string text;
        while (!m_rest.empty() && m_rest[0] != '"') {
            const std::size_t length = kit::utf8Length(m_rest);
            require(length != 0, "no UTF-8");
            require(static_cast<unsigned char>(m_rest[0]) >= 0x20, "a control character");
            if (m_rest[0] == '\\') {
                text += readEscape();
            } else {
                text += m_rest.substr(0, length);
                m_rest.remove_prefix(length);
            }
        }
        require(!m_rest.empty(), "no end of a string");
        m_rest.remove_prefix(1);
        return text;
    }

    // \u0000 to \u007f, and U+FFFD, which are those that the phone writes.
    std::string readEscape() {
        require(m_rest.size() >= 6 && m_rest[1] == 'u', "an escape of another kind");
        const std::string digits(m_rest.substr(2, 4));
        require(digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos, "no digits");
        m_rest.remove_prefix(6);
        const int code = std::stoi(digits, nullptr, 16);
        require(code < 0x80 || code == 0xFFFD, "an escape that is not needed");
        return code < 0x80 ? std::string(1, static_cast<char>(code)) : "\xEF\xBF\xBD";
    }

    std::string readWord() {
        skipBlanks();
        std::string word(m_rest.substr(0, m_rest.find_first_of(",]} \t\r\n")));
        require(word == "true" || word == "false" || word == "null" || isWholeNumber(word),
                "no value");
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
