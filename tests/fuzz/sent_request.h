// One request as a fuzzer sends it, and what it contains. The second, slow and obvious
// implementation of what HttpRequestImpl decodes, which container_model.h starts from.
#ifndef SENT_REQUEST_H
#define SENT_REQUEST_H

#include "fuzz.h"
#include "pairs.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

class SentRequest {
public:
    // `variables` are "NAME=value"; of those with the same name the first one counts.
    SentRequest(std::vector<std::string> variables, std::string body);

    // Reads lines with one variable each, an empty line, and the body. A "$" in a variable stands
    // for `sessionId`.
    static SentRequest in(Input text, const std::string& sessionId);

    const std::vector<std::string>& variables() const { return m_variables; }
    const std::string& body() const { return m_body; }

    std::optional<std::string> variable(const std::string& name) const;
    // Returns 0 for a variable that is missing or no number.
    int number(const std::string& name) const;
    // Returns the client's IP address, an IPv4 address without the prefix of its IPv6 form.
    std::optional<std::string> address() const;

    std::optional<std::string> parameter(const std::string& name) const;
    std::vector<std::string> parameterValues(const std::string& name) const;
    std::optional<std::string> sessionId() const;

    // Returns whether the container reads the body itself and leaves nothing of it for the page.
    bool isForm() const;

private:
    std::vector<std::string> m_variables;
    std::string m_body;
    Pairs m_parameters;
    Pairs m_cookies;
};

// Returns the id of the session that a response begins, or `former` if it begins none.
std::string sessionAfter(std::string_view response, const std::string& former);

} // namespace fuzz

#endif
