#include "sent_request.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <strings.h>
#include <utility>

namespace fuzz {

SentRequest::SentRequest(std::vector<std::string> variables, std::string body)
    : m_variables(std::move(variables)), m_body(std::move(body)) {
    if (!variable("REQUEST_METHOD"))
        return;
    m_cookies = pairsOfCookie(variable("HTTP_COOKIE").value_or(""));
    if (isForm() && number("CONTENT_LENGTH") == static_cast<int>(m_body.size()))
        m_parameters = pairsOfQuery(m_body);
    for (const auto& [name, value] : pairsOfQuery(variable("QUERY_STRING").value_or("")))
        add(m_parameters, name, value);
}

SentRequest SentRequest::in(Input text, const std::string& sessionId) {
    std::vector<std::string> variables;
    for (std::string line = text.line(); !line.empty(); line = text.line()) {
        std::string variable;
        for (const char byte : stretched(line))
            variable += byte == '$' ? sessionId : std::string(1, byte);
        variables.push_back(variable);
    }
    return {std::move(variables), text.rest()};
}

std::optional<std::string> SentRequest::variable(const std::string& name) const {
    for (const std::string& variable : m_variables) {
        const std::string text = upToZero(variable);
        if (text.substr(0, name.size() + 1) == name + "=")
            return text.substr(name.size() + 1);
    }
    return std::nullopt;
}

int SentRequest::number(const std::string& name) const {
    const long number = std::strtol(variable(name).value_or("").c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

std::optional<std::string> SentRequest::address() const {
    const std::string prefix = "::ffff:";
    const auto address = variable("REMOTE_ADDR");
    const bool hasPrefix = address && address->substr(0, prefix.size()) == prefix;
    return hasPrefix ? address->substr(prefix.size()) : address;
}

std::optional<std::string> SentRequest::parameter(const std::string& name) const {
    const auto values = parameterValues(name);
    return values.empty() ? std::nullopt : std::optional<std::string>(values.front());
}

std::vector<std::string> SentRequest::parameterValues(const std::string& name) const {
    std::vector<std::string> values;
    for (const auto& [itsName, value] : m_parameters)
        if (itsName == name)
            values.push_back(value);
    return values;
}

std::optional<std::string> SentRequest::sessionId() const {
    constexpr std::size_t kLongest = 63;
    for (const auto& [name, value] : m_cookies) {
        if (name != "JSESSIONID")
            continue;
        const bool isId = !value.empty() && value != " " && value.size() <= kLongest;
        return isId ? std::optional<std::string>(value) : std::nullopt;
    }
    return std::nullopt;
}

bool SentRequest::isForm() const {
    const std::string whole = variable("CONTENT_TYPE").value_or("");
    const std::string type = trimmed(whole.substr(0, whole.find(';')));
    const char* const form = "application/x-www-form-urlencoded";
    return variable("REQUEST_METHOD") == "POST" &&
           (type.empty() || strcasecmp(type.c_str(), form) == 0);
}

std::string sessionAfter(std::string_view response, const std::string& former) {
    Input header(response);
    header.upTo("Set-Cookie: JSESSIONID=");
    const std::string id = header.upTo(" ");
    return id.empty() ? former : id;
}

} // namespace fuzz
